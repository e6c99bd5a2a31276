// tqkit demo, interface support: a window built in code translated from a strings table, and a
// column of text, icon-and-text and separator cells drawn into a PNG.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "cli.h"
#include "output_file.h"
#include "tq/interface/button_extensions.h"
#include "tq/interface/image_extensions.h"
#include "tq/interface/tq_image_and_text_cell.h"
#include "tq/interface/tq_localizer.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/window.h"

namespace {

namespace fs = std::filesystem;
using tq::String;

std::string u8(const String& s) { return s.isNil() ? "nil" : "\"" + s.UTF8String() + "\""; }

tq::ImageRef folderIcon() {
  tq::ImageRef icon = tq::Image::imageWithSize({16, 16});
  auto c = icon->graphicsContext();
  c->setFillColor(tq::Color::colorWithRed(0.35, 0.6, 0.9, 1));
  c->fillRect({1, 2, 14, 10}, tq::NSCompositeCopy);
  c->fillRect({1, 12, 6, 2}, tq::NSCompositeCopy);
  return icon;
}

void runInterfaceDemo() {
  std::string pattern = (fs::temp_directory_path() / "tqkit-interface-demo-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) {
    std::printf("no temporary folder: %s\n", std::strerror(errno));
    return;
  }
  const fs::path root = pattern;
  std::ofstream(root / "Demo.strings") << "\"Preferences\" = \"Préférences\";\n"
                                          "\"Show the dock icon\" = \"Afficher l'icône dans le Dock\";\n"
                                          "\"Cancel\" = \"Annuler\";\n\"General\" = \"Général\";\n"
                                          "\"Name:\" = \"Nom :\";\n";
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8(root.string()));

  tq::Window window({0, 0, 320, 140});
  window.setTitle(u"Preferences");
  auto box = std::make_shared<tq::Box>();
  box->setTitle(u"General");
  box->setFrame({10, 10, 300, 120});
  auto label = std::make_shared<tq::TextField>(tq::Rect{10, 70, 60, 17});
  label->setStringValue(u"  Name:  ");
  auto check = std::make_shared<tq::Button>(tq::Rect{10, 40, 80, 18});
  check->setButtonType(tq::ButtonType::Switch);
  check->setTitle(u"Show the dock icon");
  auto cancel = std::make_shared<tq::Button>(tq::Rect{200, 10, 90, 32});
  cancel->setTitle(u"Cancel");
  box->contentView()->addSubview(label);
  box->contentView()->addSubview(check);
  box->contentView()->addSubview(cancel);
  window.contentView()->addSubview(box);

  std::printf("before: window %s, box %s, label %s, check box %s (width %.0f), button %s\n", u8(window.title()).c_str(),
              u8(box->title()).c_str(), u8(label->stringValue()).c_str(), u8(check->title()).c_str(), check->frame().w,
              u8(cancel->title()).c_str());
  tq::TQLocalizer::localizeWindow(&window, u"Demo", bundle);
  std::printf("after:  window %s, box %s, label %s, check box %s (width %.0f, resized: %s), button %s (frame kept)\n",
              u8(window.title()).c_str(), u8(box->title()).c_str(), u8(label->stringValue()).c_str(),
              u8(check->title()).c_str(), check->frame().w, tq::isSwitchButton(*check) ? "check box" : "no",
              u8(cancel->title()).c_str());
  std::printf("localize(\"Cancel\", \"Demo\", bundle) -> %s; untrimmed \"  Cancel  \" -> %s\n",
              u8(tq::TQLocalizer::localize(u"Cancel", u"Demo", bundle)).c_str(),
              u8(tq::TQLocalizer::localize(u"  Cancel  ", u"Demo", bundle)).c_str());

  // A table column drawn in a flipped context, one row per cell.
  const double rowHeight = 20;
  auto context = tq::GraphicsContext::imageContext({220, rowHeight * 5}, true, 2.0);
  tq::GraphicsContext::setCurrentContext(context);
  context->setFillColor(tq::Color::whiteColor());
  context->fillRect({0, 0, 220, rowHeight * 5}, tq::NSCompositeCopy);
  auto icon = folderIcon();
  std::vector<std::shared_ptr<tq::TQTextFieldCell>> rows;
  for (const char16_t* name : {u"Documents", u"Pictures"}) {
    auto cell = tq::TQTextFieldCell::initTextCell<tq::TQImageAndTextCell>(name);
    cell->setImage(icon);
    rows.push_back(cell);
  }
  auto separator = tq::TQTextFieldCell::initTextCell(u"");
  separator->setIsSpace(true);
  rows.push_back(separator);
  auto scaled = tq::TQTextFieldCell::initTextCell<tq::TQImageAndTextCell>(u"A long name that is truncated at the tail");
  scaled->setImage(icon);
  scaled->setScaleImage(true);
  rows.push_back(scaled);
  auto striped = tq::TQTextFieldCell::initTextCell(u"Opaque row");
  striped->setDrawsBackground(true);
  striped->setBackgroundColor(tq::ColorDescriptor::rgb(0.93, 0.95, 1.0));
  rows.push_back(striped);
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i]->drawWithFrame({0, i * rowHeight, 220, rowHeight}, nullptr);
  tq::GraphicsContext::setCurrentContext(nullptr);
  // A new private file (O_EXCL, mode 0600, random name): nothing planted in the shared temporary
  // folder is followed or overwritten. It is kept for the user to look at.
  std::string png = (fs::temp_directory_path() / "tqkit-demo-cells-XXXXXX.png").string();
  bool written = false;
  if (int fd = ::mkstemps(png.data(), 4); fd >= 0) {
    const std::string bytes = tq::cli::pngBytes(context->surface());
    written = ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    written = ::close(fd) == 0 && written;
    if (!written) ::unlink(png.c_str());
  }
  auto* imageCell = static_cast<tq::TQImageAndTextCell*>(rows[0].get());
  const tq::Rect f{0, 0, 220, rowHeight};
  const tq::Rect r = imageCell->imageFrameWithCellFrame(f), t = imageCell->textFrameWithCellFrame(f);
  std::printf("cells: image rect (%.0f, %.0f, %.0f, %.0f), text rect (%.0f, %.0f, %.0f, %.0f), cellSize width %.0f\n",
              r.x, r.y, r.w, r.h, t.x, t.y, t.w, t.h, imageCell->cellSize().width);
  std::printf("%zu rows drawn to %s\n", rows.size(), written ? png.c_str() : "(nothing: the PNG could not be written)");
  fs::remove_all(root);
}

tq::cli::DemoRegistration interfaceDemo({50, "interface: localizer and table cells", runInterfaceDemo});

}  // namespace
