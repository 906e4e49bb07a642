// The key sheet as a picture to print.
#include <sstream>

#include "clients/core/key/KeySheet.h"
#include "clients/core/key/QrCode.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

// Millimetres on a page of 210 by 297.
constexpr int kLeft = 20, kCodeSide = 60, kCodeLeft = 130;
constexpr std::size_t kLettersALine = 84;  // small fixed-width letters that fit between the margins

std::string xmlText(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      default:
        result += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;  // XML allows no control characters
    }
  }
  return result;
}

/// Writes lines of text from the top of the page down.
class SvgPage {
 public:
  SvgPage() {
    svg_ << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"210mm\" height=\"297mm\" viewBox=\"0 0 210 "
            "297\">\n"
            "<rect width=\"210\" height=\"297\" fill=\"white\"/>\n";
  }
  void line(const std::string& text, double size, const char* style, double left = kLeft) {
    svg_ << "<text x=\"" << left << "\" y=\"" << y_ << "\" font-size=\"" << size << "\" font-family=\""
         << style << "\" xml:space=\"preserve\">" << xmlText(text) << "</text>\n";
    y_ += size * 1.5;
  }
  void plain(const std::string& text) { line(text, 4, "sans-serif"); }
  /// Text that is too long goes on in the next line.
  void fixed(const std::string& text, std::size_t most = kLettersALine) {
    for (std::size_t at = 0; at == 0 || at < text.size();) {
      std::size_t end = std::min(at + most, text.size());
      while (end < text.size() && end > at + 1 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;  // the line must not end within a character
      }
      line(text.substr(at, end - at), 3.3, "monospace");
      at = end;
    }
  }
  void space(double height) { y_ += height; }
  double y() const { return y_; }
  void code(const QrCode& code, double top) {
    const std::size_t whole = code.size() + 2 * QrCode::kMargin;
    svg_ << "<g transform=\"translate(" << kCodeLeft << ' ' << top << ") scale("
         << static_cast<double>(kCodeSide) / static_cast<double>(whole) << ")\"><path fill=\"black\" d=\"";
    for (std::size_t row = 0; row < code.size(); ++row) {
      for (std::size_t column = 0; column < code.size(); ++column) {
        if (code.isDark(column, row)) {
          svg_ << 'M' << column + QrCode::kMargin << ' ' << row + QrCode::kMargin << "h1v1h-1z";
        }
      }
    }
    svg_ << "\" shape-rendering=\"crispEdges\"/></g>\n";
  }
  std::string finished() {
    svg_ << "</svg>\n";
    return svg_.str();
  }

 private:
  std::ostringstream svg_;
  double y_ = 28;
};

void addKey(SvgPage& page, const std::string& key) {
  constexpr std::size_t kGroupsInLine = 4;
  constexpr double kKeySize = 7;
  if (!isMadeKey(key)) {
    page.fixed(key, 50);
  } else {
    const std::vector<std::string> groups = keyGroups(key);
    std::string line;
    for (std::size_t i = 0; i < groups.size(); ++i) {
      line += (line.empty() ? "" : " ") + groups[i];
      if (i % kGroupsInLine == kGroupsInLine - 1 || i + 1 == groups.size()) {
        page.line(line, kKeySize, "monospace");
        line.clear();
      }
    }
  }
  page.space(2);
  page.plain(tr("The check group, which fits no other key:"));
  page.space(4);
  page.line(keyCheckGroup(key), kKeySize, "monospace");
}

}  // namespace

std::string keySheetSvg(const KeySheet& sheet) {
  SvgPage page;
  page.line(tr("Keldane: the key of your backup"), 8, "sans-serif");
  page.plain(tr("Whoever has this key can read the backup, and without it nobody can, you neither."));
  page.plain(tr("Keep this sheet where neither fire nor thieves get it together with the computer."));
  page.space(4);
  for (const std::string& fact : keySheetFacts(sheet)) {
    page.fixed(fact);
  }
  page.space(8);
  page.plain(tr("The key:"));
  page.space(4);
  const double top = page.y() - 12;
  addKey(page, sheet.key);
  page.code(QrCode(sheet.key), top);
  page.space(std::max(0.0, top + kCodeSide + 8 - page.y()));
  page.plain(tr("On a computer with Keldane:"));
  page.fixed(kRecoverCommand);
  page.space(5);
  page.plain(tr("On any other one (a server may want a user name and a password too):"));
  page.space(2);
  std::size_t number = 0;
  for (const RestoreStep& step : restoreSteps(sheet)) {
    page.plain(std::to_string(++number) + ". " + step.purpose);
    page.fixed(step.command);
    page.space(2);
  }
  return page.finished();
}

}  // namespace keldane
