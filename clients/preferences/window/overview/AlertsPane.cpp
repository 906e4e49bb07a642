#include "clients/preferences/window/overview/AlertsPane.h"

#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

AlertsPane::AlertsPane(AlertKeeper& keeper) : Gtk::Box(Gtk::Orientation::VERTICAL, kGap), keeper_(keeper) {
  append(*heading(tr("Tell me, also when this window is closed, when")));
  for (const AlertSwitch& each : kAlertSwitches) {
    auto* const box = Gtk::make_managed<Gtk::CheckButton>(tr(each.title));
    box->set_active(keeper_.isOn(each.kind));
    box->signal_toggled().connect([this, box, kind = each.kind] { keeper_.setOn(kind, box->get_active()); });
    append(*box);
  }
}

}  // namespace keldane
