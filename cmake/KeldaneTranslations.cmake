# Translated texts: one source file for each language, compiled for gettext.
find_package(Gettext REQUIRED)

# keldane_catalogue(NAME FOLDER): the catalogue NAME from the folder's LANGUAGE.po. The platform library looks for it in the
# nearest share/locale above itself, in a build folder as well as installed.
function(keldane_catalogue name folder)
  foreach(language ${KELDANE_LANGUAGES})
    set(po ${folder}/${language}.po)
    set(place share/locale/${language}/LC_MESSAGES)
    set(mo ${PROJECT_BINARY_DIR}/${place}/${name}.mo)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/${place})
    add_custom_command(OUTPUT ${mo} COMMAND ${GETTEXT_MSGFMT_EXECUTABLE} --check-format -o ${mo} ${po} DEPENDS ${po})
    list(APPEND translations ${mo})
    install(FILES ${mo} DESTINATION ${place})
  endforeach()
  add_custom_target(${name}_translations ALL DEPENDS ${translations})
endfunction()
