#include "clients/preferences/window/storage/SheetPrinter.h"

#include <gtkmm/printoperation.h>
#include <pangomm/layout.h>

#include "clients/core/key/QrCode.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr double kCodeWidth = 0.3;  // part of the page's width
constexpr char kSheetFont[] = "Monospace 9";

void drawCode(const Cairo::RefPtr<Cairo::Context>& cairo, const QrCode& code, double left, double top,
              double width) {
  const double module = width / static_cast<double>(code.size());
  cairo->set_source_rgb(0, 0, 0);
  for (std::size_t row = 0; row < code.size(); ++row) {
    for (std::size_t column = 0; column < code.size(); ++column) {
      if (code.isDark(column, row)) {
        cairo->rectangle(left + static_cast<double>(column) * module, top + static_cast<double>(row) * module,
                         module, module);
      }
    }
  }
  cairo->fill();
}

/// The sheet's text on one page, with the key's code below it.
void drawSheet(const Glib::RefPtr<Gtk::PrintContext>& context, const KeySheet& sheet) {
  const Cairo::RefPtr<Cairo::Context> cairo = context->get_cairo_context();
  const Glib::RefPtr<Pango::Layout> layout = context->create_pango_layout();
  layout->set_font_description(Pango::FontDescription(kSheetFont));
  layout->set_width(static_cast<int>(context->get_width()) * Pango::SCALE);
  layout->set_wrap(Pango::WrapMode::WORD_CHAR);
  layout->set_text(keySheetText(sheet, {}));
  cairo->set_source_rgb(0, 0, 0);
  layout->show_in_cairo_context(cairo);
  int width = 0, height = 0;
  layout->get_pixel_size(width, height);
  const double side = context->get_width() * kCodeWidth;
  drawCode(cairo, QrCode(sheet.key), (context->get_width() - side) / 2, height + side / 6, side);
}

}  // namespace

std::string printKeySheet(Gtk::Window& window, const KeySheet& sheet, bool& printed) {
  const auto operation = Gtk::PrintOperation::create();
  operation->set_job_name(tr("Key of the backup"));
  operation->set_n_pages(1);
  operation->signal_draw_page().connect(
      [sheet](const Glib::RefPtr<Gtk::PrintContext>& context, int) { drawSheet(context, sheet); });
  try {
    printed = operation->run(Gtk::PrintOperation::Action::PRINT_DIALOG, window) ==
              Gtk::PrintOperation::Result::APPLY;
  } catch (const Glib::Error& error) {
    printed = false;
    return error.what();
  }
  return {};
}

}  // namespace keldane
