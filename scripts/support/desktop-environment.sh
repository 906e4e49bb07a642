# Sourced from the project's folder: the places of the release build's programs for the desktop tests.
build=$PWD/build/release
export KELDANE_BUILD=$build KELDANE_BUNDLE=$build/Keldane.plugin
export KELDANE_MENU=$build/bin/keldane-menu KELDANED=$build/tests/recording-keldaned KELDANECTL=$build/bin/keldanectl
export KELDANE_PREFERENCES=$build/bin/keldane-preferences PYTHONPATH=$PWD/tests/end-to-end:$PWD/tests/desktop:$PWD/tests/desktop/preferences
