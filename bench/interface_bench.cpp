// Interface support: localizing the largest corpus interface with its German strings table, per
// pass, beside the same number of bare table lookups (steady state: the same objects again; first
// pass: freshly read objects whose texts were never measured, and the process's very first call with
// the strings table read and the fonts set up); drawing 10,000 cells of each kind into an
// image surface beside a plain Pango loop drawing the same texts; and the allocations per cell draw,
// which must not grow with the number of draws.
#include <benchmark/benchmark.h>
#include <pango/pangocairo.h>

#include <atomic>
#include <chrono>
#include <cerrno>
#include <type_traits>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "../platform/ui/drawing/text_system.h"
#include "tq/interface/button_extensions.h"
#include "tq/interface/tq_image_and_text_cell.h"
#include "tq/interface/tq_localizer.h"
#include "tq/platform/base/character_set.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/window.h"
#include "allocation_counter.h"
#include "corpus.h"


namespace {

namespace fs = std::filesystem;
using tq::String;

const fs::path kCorpus = tqbench::corpusRoot() / "transmission" / "macosx";

// The strings the localizer looks up in one pass over the objects (views, controls, menus).
void collectKeys(tq::View* v, std::vector<String>& keys) {
  if (!v) return;
  for (const auto& sub : v->subviews()) {
    tq::View* s = sub.get();
    bool descend = true;
    if (auto* p = dynamic_cast<tq::PopUpButton*>(s)) {
      if (p->menu()) {
        for (const auto& i : p->menu()->itemArray()) keys.push_back(i->title());
      }
    } else if (auto* b = dynamic_cast<tq::Button*>(s)) {
      if (b->imagePosition() != tq::NSImageOnly) {
        keys.push_back(b->title());
        keys.push_back(b->alternateTitle());
      }
    } else if (auto* box = dynamic_cast<tq::Box*>(s)) {
      keys.push_back(box->title());
    } else if (auto* m = dynamic_cast<tq::Matrix*>(s)) {
      for (const auto& c : m->cells()) keys.push_back(c->title());
    } else if (auto* t = dynamic_cast<tq::TabView*>(s)) {
      for (const auto& i : t->tabViewItems()) {
        keys.push_back(i->label());
        collectKeys(i->view().get(), keys);
      }
      descend = false;
    } else if (auto* f = dynamic_cast<tq::TextField*>(s)) {
      keys.push_back(f->stringValue());
      keys.push_back(f->placeholderString());
    } else if (auto* table = dynamic_cast<tq::TableView*>(s)) {
      for (const auto& c : table->tableColumns()) keys.push_back(c->title());
    } else if (auto* seg = dynamic_cast<tq::SegmentedControl*>(s)) {
      for (long i = 0; i < seg->segmentCount(); ++i) keys.push_back(seg->labelForSegment(i));
    }
    if (descend) collectKeys(s, keys);
  }
}

// The check boxes of a view tree with their fonts: the texts the localizer measures.
void collectCheckBoxes(tq::View* v, std::vector<std::pair<String, tq::FontRef>>& out) {
  if (!v) return;
  for (const auto& sub : v->subviews()) {
    if (auto* b = dynamic_cast<tq::Button*>(sub.get()); b && tq::isSwitchButton(b)) {
      out.emplace_back(b->title(), tq::Font::fontWithDescriptor(b->font()));
    }
    if (auto* t = dynamic_cast<tq::TabView*>(sub.get())) {
      for (const auto& i : t->tabViewItems()) collectCheckBoxes(i->view().get(), out);
    } else {
      collectCheckBoxes(sub.get(), out);
    }
  }
}

struct Corpus {
  bool ok = false;
  tq::NibReadResult read{tq::NibReadError{}};
  std::shared_ptr<tq::Bundle> bundle;
  std::vector<String> keys;
  double firstCallMicros = 0;  // the process's first localize: strings table read, fonts set up
  std::vector<std::pair<String, tq::FontRef>> checkBoxes;  // translated titles, as first measured
  Corpus() {
    const fs::path xib = kCorpus / "Base.lproj" / "PrefsWindow.xib";
    const fs::path table = kCorpus / "de.lproj" / "Localizable.strings";
    if (!fs::exists(xib) || !fs::exists(table)) return;
    read = tq::readNibFile(xib.string());
    if (!read) return;
    // A bundle holding only the German table, whatever the user's language.
    const fs::path dir = fs::temp_directory_path() / "tqkit-interface-bench";
    fs::create_directories(dir);
    fs::copy_file(table, dir / "German.strings", fs::copy_options::overwrite_existing);
    bundle = tq::Bundle::bundleWithPath(String::fromUTF8(dir.string()));
    for (const auto& o : read.nib().topLevelObjects()) {
      if (auto* w = dynamic_cast<tq::Window*>(o.get())) {
        keys.push_back(w->title());
        collectKeys(w->contentView().get(), keys);
      } else if (auto* v = dynamic_cast<tq::View*>(o.get())) {
        collectKeys(v, keys);
      }
    }
    ok = bundle != nullptr;
    if (!ok) return;
    const tq::NibReadResult first = tq::readNibFile(xib.string());
    const auto start = std::chrono::steady_clock::now();
    tq::TQLocalizer::localizeObjects(first.nib().topLevelObjects(), u"German", bundle);
    firstCallMicros = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
    for (const auto& o : first.nib().topLevelObjects()) {
      if (auto* w = dynamic_cast<tq::Window*>(o.get())) {
        collectCheckBoxes(w->contentView().get(), checkBoxes);
      } else if (auto* v = dynamic_cast<tq::View*>(o.get())) {
        collectCheckBoxes(v, checkBoxes);
      }
    }
  }
};

Corpus& corpus() {
  static Corpus c;
  return c;
}

void BM_LocalizePrefsWindow_tqkit(benchmark::State& state) {
  Corpus& c = corpus();
  if (!c.ok) {
    state.SkipWithError(tqbench::corpusLacks("no transmission/macosx PrefsWindow.xib in the corpus"));
    return;
  }
  for (auto _ : state) tq::TQLocalizer::localizeObjects(c.read.nib().topLevelObjects(), u"German", c.bundle);
  state.counters["strings_per_pass"] = static_cast<double>(c.keys.size());
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * c.keys.size()));
}
BENCHMARK(BM_LocalizePrefsWindow_tqkit)->Unit(benchmark::kMicrosecond);

// A window localized once, as a host does after loading it: fresh objects every pass, and no text
// of it measured before (the shaped widths are forgotten while the clock is stopped).
void BM_LocalizePrefsWindow_firstPass(benchmark::State& state) {
  Corpus& c = corpus();
  if (!c.ok) {
    state.SkipWithError(tqbench::corpusLacks("no transmission/macosx PrefsWindow.xib in the corpus"));
    return;
  }
  const std::string xib = (kCorpus / "Base.lproj" / "PrefsWindow.xib").string();
  for (auto _ : state) {
    state.PauseTiming();
    tq::NibReadResult fresh = tq::readNibFile(xib);
    {
      auto& system = tq::detail::TextSystem::shared();
      auto guard = system.lock();
      system.forgetShapedWidths();
    }
    state.ResumeTiming();
    tq::TQLocalizer::localizeObjects(fresh.nib().topLevelObjects(), u"German", c.bundle);
    state.PauseTiming();
    fresh = tq::NibReadResult(tq::NibReadError{});  // released off the clock
    state.ResumeTiming();
  }
  state.counters["strings_per_pass"] = static_cast<double>(c.keys.size());
  state.counters["process_first_call_us"] = c.firstCallMicros;
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * c.keys.size()));
}
BENCHMARK(BM_LocalizePrefsWindow_firstPass)->Unit(benchmark::kMicrosecond);

// The floor of a first pass: the bare lookups, and each check box's new title shaped once with
// HarfBuzz in its font (no measuring code around it). Nothing measures a text without shaping it.
void BM_LocalizePrefsWindow_firstPassFloor(benchmark::State& state) {
  Corpus& c = corpus();
  if (!c.ok) {
    state.SkipWithError(tqbench::corpusLacks("no transmission/macosx PrefsWindow.xib in the corpus"));
    return;
  }
  const String empty = String::empty();
  const String table = u"German";
  auto& system = tq::detail::TextSystem::shared();
  std::vector<std::pair<std::u16string, hb_font_t*>> shaped;
  {
    auto guard = system.lock();
    for (const auto& [title, font] : c.checkBoxes) shaped.emplace_back(title.u16string(), system.shapingFont(*font).hb);
  }
  hb_buffer_t* buffer = hb_buffer_create();
  const hb_language_t language = hb_language_from_string(
      pango_language_to_string(pango_context_get_language(system.context())), -1);
  for (auto _ : state) {
    for (const auto& k : c.keys) benchmark::DoNotOptimize(c.bundle->localizedStringForKey(k, empty, table));
    for (const auto& [text, font] : shaped) {
      hb_buffer_clear_contents(buffer);
      hb_buffer_add_utf16(buffer, reinterpret_cast<const uint16_t*>(text.data()), static_cast<int>(text.size()), 0,
                          static_cast<int>(text.size()));
      hb_buffer_set_direction(buffer, HB_DIRECTION_LTR);
      hb_buffer_set_script(buffer, HB_SCRIPT_LATIN);
      hb_buffer_set_language(buffer, language);
      hb_shape(font, buffer, nullptr, 0);
      benchmark::DoNotOptimize(hb_buffer_get_length(buffer));
    }
  }
  hb_buffer_destroy(buffer);
  state.counters["texts_shaped"] = static_cast<double>(shaped.size());
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * c.keys.size()));
}
BENCHMARK(BM_LocalizePrefsWindow_firstPassFloor)->Unit(benchmark::kMicrosecond);

void BM_LocalizePrefsWindow_bareLookups(benchmark::State& state) {
  Corpus& c = corpus();
  if (!c.ok) {
    state.SkipWithError(tqbench::corpusLacks("no transmission/macosx PrefsWindow.xib in the corpus"));
    return;
  }
  const String empty = String::empty();
  const String table = u"German";
  for (auto _ : state) {
    for (const auto& k : c.keys) {
      benchmark::DoNotOptimize(c.bundle->localizedStringForKey(k, empty, table));
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * c.keys.size()));
}
BENCHMARK(BM_LocalizePrefsWindow_bareLookups)->Unit(benchmark::kMicrosecond);

// --- cells --------------------------------------------------------------------------------------

constexpr int kCells = 10000;
constexpr double kRow = 18;

std::vector<String> cellTexts() {
  std::vector<String> t;
  static const char* const words[] = {"Documents", "Pictures", "Movies", "Music", "Downloads", "Applications"};
  for (int i = 0; i < 64; ++i) t.push_back(String::fromUTF8(std::string(words[i % 6]) + " " + std::to_string(i)));
  return t;
}

tq::ImageRef icon() {
  tq::ImageRef image = tq::Image::imageWithSize({16, 16});
  auto c = image->graphicsContext();
  c->setFillColor(tq::Color::blueColor());
  c->fillRect({2, 2, 12, 12}, tq::NSCompositeCopy);
  return image;
}

template <class Cell>
void drawCells(benchmark::State& state, bool withImage) {
  auto context = tq::GraphicsContext::imageContext({200, 400}, true);
  tq::GraphicsContext::setCurrentContext(context);
  const auto texts = cellTexts();
  auto cell = tq::TQTextFieldCell::initTextCell<Cell>(u"");
  if constexpr (std::is_same_v<Cell, tq::TQImageAndTextCell>) {
    if (withImage) cell->setImage(icon());
  }
  const int draws = static_cast<int>(state.range(0));
  long long allocs = 0, blocks = 0;
  for (auto _ : state) {
    const long long start = tqbench::newCalls.load(), startBlocks = tqbench::heapBlocks.load();
    for (int i = 0; i < draws; ++i) {
      cell->setStringValue(texts[i % texts.size()]);
      cell->drawWithFrame({0, (i % 20) * kRow, 200, kRow}, nullptr);
    }
    allocs = tqbench::newCalls.load() - start;
    blocks = tqbench::heapBlocks.load() - startBlocks;
  }
  tq::GraphicsContext::setCurrentContext(nullptr);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * draws);
  state.counters["allocs_per_cell"] = static_cast<double>(allocs) / draws;
  state.counters["heap_blocks_per_cell"] = static_cast<double>(blocks) / draws;
}

void BM_DrawCells_TQTextFieldCell(benchmark::State& state) { drawCells<tq::TQTextFieldCell>(state, false); }
BENCHMARK(BM_DrawCells_TQTextFieldCell)->Arg(1000)->Arg(kCells)->Unit(benchmark::kMillisecond);

void BM_DrawCells_TQImageAndTextCell(benchmark::State& state) { drawCells<tq::TQImageAndTextCell>(state, true); }
BENCHMARK(BM_DrawCells_TQImageAndTextCell)->Arg(1000)->Arg(kCells)->Unit(benchmark::kMillisecond);

// Baseline: one Pango layout, each text set and shown at the same place, truncated to the width.
void BM_DrawCells_plainPango(benchmark::State& state) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 200, 400);
  cairo_t* cr = cairo_create(surface);
  PangoLayout* layout = pango_cairo_create_layout(cr);
  PangoFontDescription* font = pango_font_description_from_string("DejaVu Sans 13px");
  pango_layout_set_font_description(layout, font);
  pango_layout_set_width(layout, 194 * PANGO_SCALE);
  pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
  std::vector<std::string> texts;
  for (const auto& t : cellTexts()) texts.push_back(t.UTF8String());
  const int draws = static_cast<int>(state.range(0));
  long long blocks = 0;
  for (auto _ : state) {
    const long long startBlocks = tqbench::heapBlocks.load();
    for (int i = 0; i < draws; ++i) {
      const std::string& s = texts[i % texts.size()];
      pango_layout_set_text(layout, s.data(), static_cast<int>(s.size()));
      cairo_move_to(cr, 2, (i % 20) * kRow);
      pango_cairo_show_layout(cr, layout);
    }
    blocks = tqbench::heapBlocks.load() - startBlocks;
  }
  pango_font_description_free(font);
  g_object_unref(layout);
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * draws);
  state.counters["heap_blocks_per_cell"] = static_cast<double>(blocks) / draws;
}
BENCHMARK(BM_DrawCells_plainPango)->Arg(kCells)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
