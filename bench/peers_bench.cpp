// tqkit beside the libraries a Linux desktop developer would pick instead, on the same input in the
// same run (each pair is "NAME/tqkit" and "NAME/PEER"):
//   Qt 6      whitespace reduction of 1 MiB of UTF-16 vs QString::simplified (text of words, spaces
//             and tabs, no line breaks, so both give the same string once Qt's trimming is applied
//             to ours; checked before timing); hex encode of 1 MiB vs QByteArray::toHex, hex decode
//             of its 2 MiB text vs QByteArray::fromHex
//   GTK 4     each interface form of the corpus read by tqkit vs GtkBuilder building as many widgets
//             from a .ui text as the read made objects (a box of labels, buttons, entries and check
//             buttons)
// A peer whose development package was not installed when this program was built, or GTK without a
// display, skips its rows with a note; scripts/bench.sh runs this program under xvfb-run when no
// display is set.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "corpus.h"
#include "tq/foundation/data_extensions.h"
#include "tq/foundation/string_extensions.h"
#include "tq/platform/ui/archive/nib_reader.h"

#ifdef TQ_BENCH_WITH_QT6
#include <QByteArray>
#include <QString>
#endif
#ifdef TQ_BENCH_WITH_GTK4
#include <gtk/gtk.h>
#endif

namespace {

// --- Qt 6 ------------------------------------------------------------------------------------------

constexpr std::size_t kUnits = 512u << 10;  // 1 MiB of UTF-16

// Words separated by runs of spaces and tabs, with white space at both ends.
const std::u16string& spacedText() {
  static const std::u16string text = [] {
    static const char16_t* words[] = {u"the", u"network", u"interface", u"café", u"Zürich", u"address", u"東京",
                                      u"window", u"a", u"of", u"configuration", u"value"};
    static const char16_t* gaps[] = {u" ", u" ", u" ", u"  ", u"\t", u" \t ", u"    "};
    std::mt19937 rng(29);
    std::u16string s = u"  \t";
    while (s.size() < kUnits - 16) {
      s += words[rng() % std::size(words)];
      s += gaps[rng() % std::size(gaps)];
    }
    s += u"end \t ";
    return s;
  }();
  return text;
}

std::vector<uint8_t> randomBytes(std::size_t n) {
  std::mt19937_64 rng(29);
  std::vector<uint8_t> v(n);
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}

#ifdef TQ_BENCH_WITH_QT6
QString qString(const std::u16string& s) {
  return QString(reinterpret_cast<const QChar*>(s.data()), static_cast<qsizetype>(s.size()));
}
#endif

[[maybe_unused]] void skipWithoutQt(benchmark::State& state) {
  state.SkipWithError("skipped: Qt 6 was not found when this program was built (Debian package qt6-base-dev)");
}

void BM_Simplified_tqkit(benchmark::State& state) {
#ifdef TQ_BENCH_WITH_QT6
  const tq::String in(spacedText());
  // The same string as Qt's once Qt's trimming is applied to ours: the peers do the same work.
  const tq::String ours = tq::stringByReducingWhitespaces(in);
  if (qString(ours.u16string()).trimmed() != qString(spacedText()).simplified()) {
    return state.SkipWithError("tqkit's and Qt's results differ");
  }
  for (auto _ : state) benchmark::DoNotOptimize(tq::stringByReducingWhitespaces(in));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kUnits * 2));
#else
  skipWithoutQt(state);
#endif
}
BENCHMARK(BM_Simplified_tqkit)->Name("simplified/1MiB/tqkit")->Unit(benchmark::kMicrosecond);

void BM_Simplified_Qt(benchmark::State& state) {
#ifdef TQ_BENCH_WITH_QT6
  const QString in = qString(spacedText());
  for (auto _ : state) benchmark::DoNotOptimize(in.simplified());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kUnits * 2));
#else
  skipWithoutQt(state);
#endif
}
BENCHMARK(BM_Simplified_Qt)->Name("simplified/1MiB/Qt")->Unit(benchmark::kMicrosecond);

void BM_ToHex_tqkit(benchmark::State& state) {
#ifdef TQ_BENCH_WITH_QT6
  const auto bytes = randomBytes(1u << 20);
  const tq::Data data = tq::Data::withBytes(bytes.data(), bytes.size());
  for (auto _ : state) benchmark::DoNotOptimize(tq::hexadecimalRepresentation(data));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
#else
  skipWithoutQt(state);
#endif
}
BENCHMARK(BM_ToHex_tqkit)->Name("toHex/1MiB/tqkit")->Unit(benchmark::kMicrosecond);

void BM_ToHex_Qt(benchmark::State& state) {
#ifdef TQ_BENCH_WITH_QT6
  const auto bytes = randomBytes(1u << 20);
  const QByteArray data(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size()));
  for (auto _ : state) benchmark::DoNotOptimize(data.toHex());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
#else
  skipWithoutQt(state);
#endif
}
BENCHMARK(BM_ToHex_Qt)->Name("toHex/1MiB/Qt")->Unit(benchmark::kMicrosecond);

void BM_FromHex_tqkit(benchmark::State& state) {
#ifdef TQ_BENCH_WITH_QT6
  const auto bytes = randomBytes(1u << 20);
  const tq::String text = tq::hexadecimalRepresentation(tq::Data::withBytes(bytes.data(), bytes.size()));
  for (auto _ : state) benchmark::DoNotOptimize(tq::dataWithHexadecimalRepresentation(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
#else
  skipWithoutQt(state);
#endif
}
BENCHMARK(BM_FromHex_tqkit)->Name("fromHex/1MiB/tqkit")->Unit(benchmark::kMicrosecond);

void BM_FromHex_Qt(benchmark::State& state) {
#ifdef TQ_BENCH_WITH_QT6
  const auto bytes = randomBytes(1u << 20);
  const QByteArray text =
      QByteArray(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size())).toHex();
  for (auto _ : state) benchmark::DoNotOptimize(QByteArray::fromHex(text));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
#else
  skipWithoutQt(state);
#endif
}
BENCHMARK(BM_FromHex_Qt)->Name("fromHex/1MiB/Qt")->Unit(benchmark::kMicrosecond);

// --- GTK 4 -----------------------------------------------------------------------------------------

// The reason GTK cannot be used here, or empty.
std::string gtkUnavailable() {
#ifdef TQ_BENCH_WITH_GTK4
  static const std::string reason = [] {
    ::setenv("GTK_A11Y", "none", 0);  // no accessibility bus: building widgets is what is measured
    return gtk_init_check() ? "" : "skipped: GTK found no display (run under xvfb-run)";
  }();
  return reason;
#else
  return "skipped: GTK 4 was not found when this program was built (Debian package libgtk-4-dev)";
#endif
}

// A .ui text of `widgets` widgets: one vertical box holding the others.
std::string builderText(std::size_t widgets) {
  static const char* kinds[][2] = {{"GtkLabel", "label"}, {"GtkButton", "label"}, {"GtkEntry", "text"},
                                   {"GtkCheckButton", "label"}};
  std::string ui = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<interface>\n"
                   "<object class=\"GtkBox\" id=\"root\"><property name=\"orientation\">vertical</property>\n";
  for (std::size_t i = 1; i < widgets; ++i) {
    const auto& k = kinds[i % std::size(kinds)];
    ui += "<child><object class=\"" + std::string(k[0]) + "\" id=\"w" + std::to_string(i) + "\"><property name=\"" +
          k[1] + "\">Item " + std::to_string(i) + "</property></object></child>\n";
  }
  return ui + "</object>\n</interface>\n";
}

void readForm(benchmark::State& state, const std::string& doc) {
  if (doc.empty()) return state.SkipWithError(tqbench::corpusLacks("no such corpus file"));
  if (std::string why = gtkUnavailable(); !why.empty()) return state.SkipWithError(why.c_str());
  std::size_t objects = 0;
  for (auto _ : state) {
    tq::NibReadResult r = tq::readNibData(doc);
    if (!r) return state.SkipWithError(r.error().reason.c_str());
    objects = r.nib().objectCount();
    benchmark::DoNotOptimize(r);
  }
  state.counters["objects"] = static_cast<double>(objects);
}

void buildForm(benchmark::State& state, const std::string& doc) {
  if (doc.empty()) return state.SkipWithError(tqbench::corpusLacks("no such corpus file"));
  if (std::string why = gtkUnavailable(); !why.empty()) return state.SkipWithError(why.c_str());
#ifdef TQ_BENCH_WITH_GTK4
  tq::NibReadResult r = tq::readNibData(doc);
  if (!r) return state.SkipWithError(r.error().reason.c_str());
  const std::size_t widgets = r.nib().objectCount();
  const std::string ui = builderText(widgets);
  for (auto _ : state) {
    GtkBuilder* builder = gtk_builder_new_from_string(ui.c_str(), static_cast<gssize>(ui.size()));
    benchmark::DoNotOptimize(gtk_builder_get_object(builder, "root"));
    g_object_unref(builder);  // the builder holds the only reference to the box and its children
  }
  state.counters["objects"] = static_cast<double>(widgets);
#endif
}

#define TQ_FORM_PAIR(form, document)                                                      \
  void BM_##form##_tqkit(benchmark::State& state) { readForm(state, document()); }       \
  BENCHMARK(BM_##form##_tqkit)->Name(#form "/tqkit")->Unit(benchmark::kMicrosecond);     \
  void BM_##form##_GtkBuilder(benchmark::State& state) { buildForm(state, document()); } \
  BENCHMARK(BM_##form##_GtkBuilder)->Name(#form "/GtkBuilder")->Unit(benchmark::kMicrosecond);

TQ_FORM_PAIR(xib, tqbench::currentDocument)
TQ_FORM_PAIR(xml_archive, tqbench::xmlArchive)
TQ_FORM_PAIR(keyed_archive, tqbench::keyedArchive)
TQ_FORM_PAIR(nib_archive, tqbench::nibArchive)

}  // namespace

BENCHMARK_MAIN();
