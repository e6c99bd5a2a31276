// Presenting a corpus window live: reading HandBrake's main window from memory, localizing it (its
// French strings table), building its GTK widgets and drawing the first frame, beside GtkBuilder
// building, from memory, a .ui file with the same number and kinds of widgets (written from the
// widgets tqkit makes for the whole window, at the same places, with the same texts, label
// settings, tool tips and style classes) and drawing its first frame.
// Both run on the same display server (this program's own Xvfb when DISPLAY is not set) with the
// same renderer; each iteration ends with the window destroyed (not timed).
#include <benchmark/benchmark.h>
#include <gtk/gtk.h>

#include <chrono>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "corpus.h"
#include "support/x_display.h"
#include "tq/gtk/gtk_presenter.h"
#include "tq/gtk/widget_inspection.h"
#include "tq/interface/tq_localizer.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/model/window.h"

namespace {

namespace fs = std::filesystem;

const fs::path kResources = tqbench::corpusRoot() / "handbrake" / "macosx";
const fs::path kFile = kResources / "Base.lproj" / "MainWindow.xib";

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs the loop until the window's first frame is drawn.
void firstFrame(GtkWindow* window) {
  bool drawn = false;
  tq::afterNextFrame(window, [&] { drawn = true; });
  while (!drawn) g_main_context_iteration(nullptr, TRUE);
}

void settle() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

// --- the same widgets as a GtkBuilder file -------------------------------------------------------------

std::string escaped(const char* s) {
  std::string out;
  for (const char* p = s; p && *p; ++p) {
    switch (*p) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      default: out += *p;
    }
  }
  return out;
}

std::string property(const char* name, const std::string& value) {
  return "<property name=\"" + std::string(name) + "\">" + value + "</property>";
}

// One widget tqkit made, as a builder object of the same class (a GTK class standing for the
// library's own containers), with its texts, its size and its children.
std::string objectFor(GtkWidget* w);

// Menus are objects of their own in a builder file, named by the menu buttons that show them.
std::string gMenus;
int gMenuCount = 0;

std::string menuItems(GMenuModel* model) {
  std::string out;
  for (int i = 0; i < g_menu_model_get_n_items(model); ++i) {
    char* label = nullptr;
    g_menu_model_get_item_attribute(model, i, G_MENU_ATTRIBUTE_LABEL, "s", &label);
    if (GMenuModel* section = g_menu_model_get_item_link(model, i, G_MENU_LINK_SECTION)) {
      out += "<section>" + menuItems(section) + "</section>";
      g_object_unref(section);
    } else if (GMenuModel* sub = g_menu_model_get_item_link(model, i, G_MENU_LINK_SUBMENU)) {
      out += "<submenu><attribute name=\"label\">" + escaped(label) + "</attribute>" + menuItems(sub) + "</submenu>";
      g_object_unref(sub);
    } else {
      out += "<item><attribute name=\"label\">" + escaped(label) + "</attribute></item>";
    }
    g_free(label);
  }
  return out;
}

std::string childrenOf(GtkWidget* w) {
  std::string out;
  for (GtkWidget* c = gtk_widget_get_first_child(w); c; c = gtk_widget_get_next_sibling(c)) {
    graphene_rect_t b;
    if (!gtk_widget_compute_bounds(c, w, &b)) b = GRAPHENE_RECT_INIT(0, 0, 0, 0);
    out += "<child>" + objectFor(c);
    if (GTK_IS_FIXED(gtk_widget_get_parent(c)) || std::string(G_OBJECT_TYPE_NAME(w)) == "TqFrameBox") {
      out.insert(out.size() - 9,  // before </object>
                 "<layout>" + property("transform", "translate(" + std::to_string(int(b.origin.x)) + ", " +
                                                        std::to_string(int(b.origin.y)) + ")") +
                     "</layout>");
    }
    out += "</child>";
  }
  return out;
}

std::string objectFor(GtkWidget* w) {
  std::string type = G_OBJECT_TYPE_NAME(w);
  std::string props = property("width-request", std::to_string(gtk_widget_get_width(w))) +
                      property("height-request", std::to_string(gtk_widget_get_height(w)));
  if (!gtk_widget_get_visible(w)) props += property("visible", "0");
  if (const char* tip = gtk_widget_get_tooltip_text(w)) props += property("tooltip-text", escaped(tip));
  if (!gtk_widget_get_sensitive(w)) props += property("sensitive", "0");
  char** classes = gtk_widget_get_css_classes(w);
  std::string style;
  for (char** c = classes; c && *c; ++c) style += "<class name=\"" + escaped(*c) + "\"/>";
  g_strfreev(classes);
  std::string inner;
  if (type == "TqFrameBox") {
    type = "GtkFixed";
    inner = childrenOf(w);
  } else if (GTK_IS_LABEL(w)) {
    // What changes how a label lays out and draws, as tqkit set it.
    GtkLabel* l = GTK_LABEL(w);
    props += property("label", escaped(gtk_label_get_text(l)));
    props += property("xalign", std::to_string(gtk_label_get_xalign(l))) + property("yalign", std::to_string(gtk_label_get_yalign(l)));
    if (gtk_label_get_wrap(l)) props += property("wrap", "1");
    if (gtk_label_get_ellipsize(l) != PANGO_ELLIPSIZE_NONE) props += property("ellipsize", std::to_string(int(gtk_label_get_ellipsize(l))));
    if (gtk_label_get_selectable(l)) props += property("selectable", "1");
    if (gtk_widget_get_overflow(w) == GTK_OVERFLOW_HIDDEN) props += property("overflow", "hidden");
    if (PangoAttrList* attrs = gtk_label_get_attributes(l)) {
      char* text = pango_attr_list_to_string(attrs);
      props += property("attributes", escaped(text));
      g_free(text);
    }
  } else if (GTK_IS_CHECK_BUTTON(w)) {
    props += property("label", escaped(gtk_check_button_get_label(GTK_CHECK_BUTTON(w))));
  } else if (GTK_IS_MENU_BUTTON(w)) {
    props += property("label", escaped(gtk_menu_button_get_label(GTK_MENU_BUTTON(w))));
    if (GMenuModel* model = gtk_menu_button_get_menu_model(GTK_MENU_BUTTON(w))) {
      const std::string id = "menu" + std::to_string(++gMenuCount);
      gMenus += "<menu id=\"" + id + "\">" + menuItems(model) + "</menu>";
      props += property("menu-model", id);
    }
  } else if (GTK_IS_BUTTON(w)) {
    GtkWidget* child = gtk_button_get_child(GTK_BUTTON(w));
    if (child && GTK_IS_LABEL(child)) props += property("label", escaped(gtk_label_get_text(GTK_LABEL(child))));
    else if (child) inner = "<child>" + objectFor(child) + "</child>";
  } else if (GTK_IS_ENTRY(w)) {
    props += property("text", escaped(gtk_editable_get_text(GTK_EDITABLE(w))));
    if (const char* p = gtk_entry_get_placeholder_text(GTK_ENTRY(w))) props += property("placeholder-text", escaped(p));
  } else if (GTK_IS_DROP_DOWN(w)) {
    GListModel* model = gtk_drop_down_get_model(GTK_DROP_DOWN(w));
    std::string items;
    for (guint i = 0; model && i < g_list_model_get_n_items(model); ++i) {
      auto* item = GTK_STRING_OBJECT(g_list_model_get_item(model, i));
      items += "<item>" + escaped(gtk_string_object_get_string(item)) + "</item>";
      g_object_unref(item);
    }
    props += "<property name=\"model\"><object class=\"GtkStringList\"><items>" + items + "</items></object></property>";
    props += property("selected", std::to_string(gtk_drop_down_get_selected(GTK_DROP_DOWN(w))));
  } else if (GTK_IS_NOTEBOOK(w)) {
    for (int i = 0; i < gtk_notebook_get_n_pages(GTK_NOTEBOOK(w)); ++i) {
      GtkWidget* page = gtk_notebook_get_nth_page(GTK_NOTEBOOK(w), i);
      GtkWidget* tab = gtk_notebook_get_tab_label(GTK_NOTEBOOK(w), page);
      inner += "<child><object class=\"GtkNotebookPage\"><property name=\"child\">" + objectFor(page) +
               "</property><property name=\"tab\">" + objectFor(tab) + "</property></object></child>";
    }
  } else if (GTK_IS_FRAME(w)) {
    if (GtkWidget* label = gtk_frame_get_label_widget(GTK_FRAME(w))) {
      props += property("label", escaped(gtk_label_get_text(GTK_LABEL(label))));
    }
  } else if (GTK_IS_SCROLLED_WINDOW(w)) {
    if (GtkWidget* child = gtk_scrolled_window_get_child(GTK_SCROLLED_WINDOW(w))) {
      inner = "<property name=\"child\">" + objectFor(child) + "</property>";
    }
  } else if (GTK_IS_VIEWPORT(w)) {
    if (GtkWidget* child = gtk_viewport_get_child(GTK_VIEWPORT(w))) inner = "<property name=\"child\">" + objectFor(child) + "</property>";
  } else if (GTK_IS_BOX(w)) {
    inner = childrenOf(w);
  } else if (GTK_IS_COLUMN_VIEW(w)) {
    GListModel* columns = gtk_column_view_get_columns(GTK_COLUMN_VIEW(w));
    for (guint i = 0; i < g_list_model_get_n_items(columns); ++i) {
      auto* column = GTK_COLUMN_VIEW_COLUMN(g_list_model_get_item(columns, i));
      inner += "<child><object class=\"GtkColumnViewColumn\">" +
               property("title", escaped(gtk_column_view_column_get_title(column))) +
               property("fixed-width", std::to_string(gtk_column_view_column_get_fixed_width(column))) +
               "</object></child>";
      g_object_unref(column);
    }
    props += "<property name=\"model\"><object class=\"GtkNoSelection\"><property name=\"model\"><object "
             "class=\"GtkStringList\"/></property></object></property>";
  } else if (GTK_IS_PANED(w)) {
    if (GtkWidget* a = gtk_paned_get_start_child(GTK_PANED(w))) inner += "<property name=\"start-child\">" + objectFor(a) + "</property>";
    if (GtkWidget* b = gtk_paned_get_end_child(GTK_PANED(w))) inner += "<property name=\"end-child\">" + objectFor(b) + "</property>";
  }
  return "<object class=\"" + type + "\">" + props + inner + (style.empty() ? "" : "<style>" + style + "</style>") + "</object>";
}

// The whole window: title, header bar, menu bar (its model's titles), content.
std::string builderFileFor(GtkWindow* window) {
  GtkWidget* root = gtk_window_get_child(window);
  std::string content;
  for (GtkWidget* c = gtk_widget_get_first_child(root); c; c = gtk_widget_get_next_sibling(c)) {
    if (!GTK_IS_POPOVER_MENU_BAR(c)) content += "<child>" + objectFor(c) + "</child>";
  }
  return "<?xml version=\"1.0\"?><interface>" + gMenus + "<object class=\"GtkWindow\" id=\"window\">" +
         property("title", escaped(gtk_window_get_title(window))) +
         "<property name=\"titlebar\"><object class=\"GtkHeaderBar\"/></property><child><object class=\"GtkBox\">" +
         property("orientation", "vertical") + content + "</object></child></object></interface>";
}

// --- the benchmarks -------------------------------------------------------------------------------------

struct Setup {
  std::string document;
  std::shared_ptr<tq::Bundle> bundle;
  std::string ui;
  long widgets = 0;
};

long countWidgets(GtkWidget* w) {
  long n = 1;
  for (GtkWidget* c = gtk_widget_get_first_child(w); c; c = gtk_widget_get_next_sibling(c)) n += countWidgets(c);
  return n;
}

// Every view below `view`, hidden or not.
void allViews(tq::View& view, std::vector<tq::View*>& out) {
  for (const auto& sub : view.subviews()) {
    if (!sub) continue;
    out.push_back(sub.get());
    allViews(*sub, out);
  }
}

// The builder file describes the whole window, as a .ui author writes it: the widgets of views
// hidden at first are in it, invisible (tqkit makes them only when they are first shown).
const Setup& setup() {
  static Setup s = [] {
    Setup made;
    made.document = readAll(kFile);
    made.bundle = tq::Bundle::bundleWithPath(tq::String::fromUTF8(kResources.string()));
    tq::NibReadResult read = tq::readNibData(made.document);
    auto presenter = std::make_shared<tq::GtkPresenter>(read.nib().topLevelObjects());
    auto& window = dynamic_cast<tq::Window&>(*presenter->presentableObjects().front());
    std::vector<tq::View*> views;
    allViews(*window.contentView(), views);
    std::vector<tq::View*> hidden;
    for (tq::View* v : views) {
      if (v->isHidden()) hidden.push_back(v), v->setHidden(false);
    }
    GtkWindow* shown = presenter->showWindow(window);
    firstFrame(shown);
    for (tq::View* v : hidden) {
      if (GtkWidget* w = presenter->widgetFor(*v)) gtk_widget_set_visible(w, FALSE);
    }
    made.ui = builderFileFor(shown);
    made.widgets = countWidgets(GTK_WIDGET(shown));
    presenter.reset();
    settle();
    return made;
  }();
  return s;
}

// One presentation each way; the first frame drawn ends the timed part. Answers milliseconds.
double presentWithTqkit(const Setup& s) {
  const auto start = std::chrono::steady_clock::now();
  tq::NibReadResult read = tq::readNibData(s.document);
  const auto& objects = read.nib().topLevelObjects();
  tq::TQLocalizer::localizeObjects(objects, u"MainWindow", s.bundle);
  auto presenter = std::make_shared<tq::GtkPresenter>(objects);
  GtkWindow* window = presenter->showWindow(dynamic_cast<tq::InterfaceObject&>(*presenter->presentableObjects().front()));
  firstFrame(window);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  presenter.reset();
  settle();
  return ms;
}

double presentWithBuilder(const Setup& s) {
  const auto start = std::chrono::steady_clock::now();
  GtkBuilder* builder = gtk_builder_new_from_string(s.ui.c_str(), static_cast<gssize>(s.ui.size()));
  GtkWindow* window = GTK_WINDOW(gtk_builder_get_object(builder, "window"));
  gtk_window_present(window);
  firstFrame(window);
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  gtk_window_destroy(window);
  g_object_unref(builder);
  settle();
  return ms;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

void BM_PresentMainWindow_tqkit(benchmark::State& state) {
  if (!fs::is_regular_file(kFile)) return state.SkipWithError(tqbench::corpusLacks("HandBrake's MainWindow.xib"));
  const Setup& s = setup();
  for (auto _ : state) state.SetIterationTime(presentWithTqkit(s) / 1000);
  state.counters["widgets"] = static_cast<double>(s.widgets);
}

void BM_PresentMainWindow_gtkbuilder(benchmark::State& state) {
  if (!fs::is_regular_file(kFile)) return state.SkipWithError(tqbench::corpusLacks("HandBrake's MainWindow.xib"));
  const Setup& s = setup();
  for (auto _ : state) state.SetIterationTime(presentWithBuilder(s) / 1000);
}

// Both ways in turns (which comes first alternates), so that whatever else the machine does falls
// on both alike: the ratio is the median of each turn's tqkit time over its GtkBuilder time.
void BM_PresentMainWindow_alternating(benchmark::State& state) {
  if (!fs::is_regular_file(kFile)) return state.SkipWithError(tqbench::corpusLacks("HandBrake's MainWindow.xib"));
  const Setup& s = setup();
  std::vector<double> tq, gb, ratios;
  bool tqFirst = true;
  for (auto _ : state) {
    double a, b;
    if (tqFirst) {
      a = presentWithTqkit(s);
      b = presentWithBuilder(s);
    } else {
      b = presentWithBuilder(s);
      a = presentWithTqkit(s);
    }
    tqFirst = !tqFirst;
    tq.push_back(a);
    gb.push_back(b);
    ratios.push_back(a / b);
    state.SetIterationTime((a + b) / 1000);
  }
  state.counters["tqkit_ms"] = median(tq);
  state.counters["gtkbuilder_ms"] = median(gb);
  state.counters["ratio"] = median(ratios);
}

BENCHMARK(BM_PresentMainWindow_tqkit)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);
BENCHMARK(BM_PresentMainWindow_gtkbuilder)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);
BENCHMARK(BM_PresentMainWindow_alternating)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(6.0);

}  // namespace

int main(int argc, char** argv) {
  if (!std::getenv("DISPLAY") && !tq::test::XDisplay::shared().ok()) {
    std::fprintf(stderr, "gtk_bench: no display: %s\n", tq::test::XDisplay::shared().reason().c_str());
    return 1;
  }
  ::setenv("LANGUAGE", "fr", 1);
  // Both ways draw with GTK's Cairo renderer: a virtual display server has no GPU, and the GL
  // renderer's software fallback would weigh on both alike and blur the comparison.
  ::setenv("GSK_RENDERER", "cairo", 0);
  if (!gtk_init_check()) {
    std::fprintf(stderr, "gtk_bench: GTK cannot open the display\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
