// tqkit render: draws a window (or a top-level view) of an interface document into a PNG.
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "font_coverage.h"
#include "output_file.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/drawing/pango_text_measurer.h"
#include "tq/platform/ui/drawing/view_drawing.h"
#include "tq/platform/ui/model/window.h"

namespace {

// The things a document can show: its windows and top-level views, in document order.
struct Drawable {
  std::shared_ptr<tq::Window> window;
  std::shared_ptr<tq::View> view;
  std::string scene;  // a storyboard's: the scene's controller, identifier and storyboard identifier
  std::string kind() const { return (window ? window->className() : view->className()).UTF8String(); }
  std::string title() const { return window ? window->title().UTF8String() : std::string(); }
  tq::Rect rect() const { return window ? window->contentRect() : view->frame(); }
};

std::vector<Drawable> drawables(const tq::Nib& nib) {
  std::vector<Drawable> found;
  for (const auto& object : nib.topLevelObjects()) {
    if (auto window = std::dynamic_pointer_cast<tq::Window>(object)) {
      found.push_back({window, nullptr, {}});
    } else if (auto view = std::dynamic_pointer_cast<tq::View>(object)) {
      found.push_back({nullptr, view, {}});
    }
  }
  return found;
}

// A storyboard's scenes that show a window or a view, in document order.
std::vector<Drawable> drawables(const tq::Storyboard& storyboard) {
  std::vector<Drawable> found;
  for (const auto& scene : storyboard.scenes()) {
    auto window = scene.window();
    auto view = scene.view();
    // Only what can be drawn is offered.
    if (!window && !(view && !view->frame().isEmpty())) continue;
    if (window && (!window->contentView() || window->contentRect().isEmpty())) continue;
    const auto& c = scene.controller;
    std::string name = (c->customClassName().isNil() ? c->className() : c->customClassName()).UTF8String();
    name += " scene " + scene.identifier.UTF8String();
    if (!scene.storyboardIdentifier.isNil()) name += " (" + scene.storyboardIdentifier.UTF8String() + ")";
    found.push_back({window, window ? nullptr : view, name});
  }
  return found;
}

// Those of the items that render draws (at scale 1; an empty window or view has nothing to draw),
// counting the others in `left`. --list offers these, and --window counts among them.
std::vector<Drawable> drawableOnly(std::vector<Drawable> items, std::size_t& left) {
  std::vector<Drawable> kept;
  for (auto& item : items) {
    const bool can = item.window ? tq::canRenderWindow(*item.window) : tq::canRenderView(*item.view, 1.0);
    if (can) {
      kept.push_back(std::move(item));
    } else {
      ++left;
    }
  }
  return kept;
}

// The images the document names: those it holds, then files beside it.
std::shared_ptr<tq::InterfaceImageSource> imagesOf(const tq::Nib& nib, const std::string& path) {
  auto images = std::make_shared<tq::InterfaceImageSource>(tq::String::fromUTF8(path));
  for (const auto& [name, bytes] : nib.embeddedImages()) images->addImage(name, tq::Image::imageWithData(bytes));
  return images;
}

int runRender(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {"window", "png", "scale"}, {"list", "json", "no-title-bar"});
  args.expectPositionals(1, 1);
  const std::string& path = args.positional(0, "FILE");
  const bool list = args.has("list");
  if (!list && !args.value("png")) throw tq::cli::UsageError("--png OUT is required");

  long index = 0;
  if (auto w = args.value("window")) {
    char* end = nullptr;
    index = std::strtol(w->c_str(), &end, 10);
    if (w->empty() || *end != '\0' || index < 0) throw tq::cli::UsageError("--window takes a number from 0");
  }
  double scale = 1;
  if (auto s = args.value("scale")) {
    char* end = nullptr;
    scale = std::strtod(s->c_str(), &end);
    if (s->empty() || *end != '\0' || !(scale >= 0.25 && scale <= 8)) {
      throw tq::cli::UsageError("--scale takes a number from 0.25 to 8");
    }
  }

  // A storyboard is drawn scene by scene.
  std::optional<tq::StoryboardReadResult> storyboard;
  if (tq::isStoryboardPath(path)) storyboard = tq::readStoryboardFile(path);
  tq::NibReadResult result = storyboard ? (*storyboard ? storyboard->storyboard().nibResult() : tq::NibReadResult(storyboard->error()))
                                        : tq::readNibFile(path);
  if (!result) {
    const std::string& reason = result.error().reason;
    throw tq::cli::Failure(reason.find(path) == std::string::npos ? path + ": " + reason : reason);
  }
  std::size_t left = 0;
  const auto items = drawableOnly(storyboard ? drawables(storyboard->storyboard()) : drawables(result.nib()), left);

  if (list) {
    if (args.has("json")) {
      tq::cli::Json json;
      json.beginArray();
      for (std::size_t i = 0; i < items.size(); ++i) {
        const tq::Rect r = items[i].rect();
        json.beginObject().key("index").number(static_cast<long long>(i)).key("class").string(items[i].kind());
        json.key("title").string(items[i].title()).key("width").number(r.w).key("height").number(r.h);
        if (!items[i].scene.empty()) json.key("scene").string(items[i].scene);
        json.endObject();
      }
      json.endArray();
      json.newline();
    } else {
      for (std::size_t i = 0; i < items.size(); ++i) {
        const tq::Rect r = items[i].rect();
        const std::string label = items[i].title() + (items[i].title().empty() || items[i].scene.empty() ? "" : "  ") + items[i].scene;
        std::printf("%zu  %s  %gx%g  %s\n", i, items[i].kind().c_str(), r.w, r.h, label.c_str());
      }
    }
    if (left > 0) {
      std::fflush(stdout);  // the note follows the list it is about
      std::fprintf(stderr, "tqkit render: %s: %zu window%s or view%s with an empty or too large frame not listed\n",
                   path.c_str(), left, left == 1 ? "" : "s", left == 1 ? "" : "s");
    }
    return 0;
  }

  if (items.empty()) {
    char why[200] = "";
    if (left > 0) {
      std::snprintf(why, sizeof why, " (the document's are empty, or larger than %g pixels a side or %.0f pixels in all)",
                    tq::kMaxRenderSide, tq::kMaxRenderPixels);
    }
    throw tq::cli::Failure(path + ": no window or top-level view to draw" + why);
  }
  if (static_cast<std::size_t>(index) >= items.size()) {
    throw tq::cli::UsageError("--window " + std::to_string(index) + ": the document has " +
                              std::to_string(items.size()) + " windows and views (0 to " +
                              std::to_string(items.size() - 1) + "; see --list)");
  }

  tq::cli::warnOfUncoveredCharacters("render");
  const Drawable& item = items[static_cast<std::size_t>(index)];
  const tq::Size size = item.window ? tq::renderedWindowSize(*item.window, !args.has("no-title-bar"))
                                    : tq::Size{item.rect().w, item.rect().h};
  if (!tq::renderedSizeFits(size, scale) && size.width > 0 && size.height > 0) {
    char what[200];
    std::snprintf(what, sizeof what,
                  ": window %ld is %g x %g points at scale %g; pictures over %g pixels a side or %.0f pixels in all "
                  "are not drawn",
                  index, size.width, size.height, scale, tq::kMaxRenderSide, tq::kMaxRenderPixels);
    throw tq::cli::Failure(path + what);
  }
  tq::PangoTextMeasurer::install();
  tq::WindowRenderOptions options;
  options.scale = scale;
  options.titleBar = !args.has("no-title-bar");
  options.images = imagesOf(result.nib(), path);
  auto image = item.window ? tq::renderWindow(*item.window, options)
                           : tq::renderView(*item.view, scale, nullptr, options.images);
  if (!image) throw tq::cli::Failure(path + ": window " + std::to_string(index) + ": no memory for its picture");
  const std::string out = *args.value("png");
  // The picture is put in place only once the report about it has been written.
  tq::cli::OutputFiles png;
  png.write({}, out, tq::cli::pngBytes(image->surface()));
  if (args.has("json")) {
    tq::cli::Json json;
    const tq::Rect r = item.rect();
    json.beginObject().key("png").string(out).key("index").number(static_cast<long long>(index));
    json.key("class").string(item.kind()).key("title").string(item.title());
    json.key("width").number(r.w).key("height").number(r.h).key("scale").number(scale).endObject();
    json.newline();
  }
  tq::cli::flushStandardOutput();
  png.commit();
  return 0;
}

tq::cli::Registration render(
    {"render", "draw a window of an interface file into a PNG",
     "usage: tqkit render FILE [--window N] [--scale S] [--no-title-bar] --png OUT [--json]\n"
     "       tqkit render FILE --list [--json]\n\n"
     "Reads the interface FILE in any form (.xib, the older XML archive, a compiled .nib file or\n"
     "folder, a .storyboard or compiled .storyboardc, whose scenes are listed and drawn one by one:\n"
     "a window controller's window with its content, a view controller's view) and draws one of\n"
     "its windows, with its title bar and toolbar, or one of its top-level views (drawn even when\n"
     "archived hidden) into the PNG file OUT: frames, titles, labels, text\n"
     "fields, buttons, check boxes, pop-up buttons, segmented controls, boxes, tab views, tables,\n"
     "scroll views, split views, combo boxes, sliders, steppers, level and progress indicators, date\n"
     "pickers, text views with their text, image views, toolbar items with their images, views and\n"
     "labels. Named images come from the document itself, its folder and the folders around it\n"
     "(.lproj, resources); the platform's common template images draw as stand-ins, other missing\n"
     "images as grey placeholders, custom views that show nothing else as dashed outlines with\n"
     "their class name. Pictures over 16384 pixels a side or 8192 x 8192 pixels in all are refused.\n"
     "Text in a script no installed font covers is drawn as boxes; each such font and script is\n"
     "named once on standard error.\n\n"
     "  --window N     which window or top-level view, counting from 0 in the order --list shows\n"
     "                 (default 0)\n"
     "  --list         list the windows and views that can be drawn, in document order, with their\n"
     "                 sizes (those with an empty or too large frame are left out, and counted on\n"
     "                 standard error)\n"
     "  --scale S      pixels per point (default 1; 2 for a sharper picture)\n"
     "  --no-title-bar draw the content only\n"
     "  --json         describe what was drawn (or the list) as JSON\n\n"
     "Exit status: 0 drawn, 1 the file cannot be read or the PNG written, 2 usage error.\n",
     runRender});

}  // namespace
