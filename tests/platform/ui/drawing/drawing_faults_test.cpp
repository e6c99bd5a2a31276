// Faults seen in rendered windows of real applications, each drawn from a document in the form it
// was met in and checked on the recording context: split view panes, combo boxes, spinning
// indicators, custom view stand-ins, pull-downs, template image stand-ins, scrollers, and text in
// scripts no installed font covers.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <regex>

#include "support/test_paths.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/string_drawing.h"
#include "tq/platform/ui/drawing/view_drawing.h"
#include "tq/platform/ui/model/progress_indicator.h"

using namespace tq;
using Kind = DrawingRecord::Kind;

namespace {

std::string xib(const std::string& objects) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<document type=\"com.apple.InterfaceBuilder3.Cocoa.XIB\" "
         "version=\"3.0\"><objects>" + objects + "</objects></document>";
}

// The older XML archive: the objects are the top-level objects after the File's Owner.
std::string archive(const std::string& objects) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<archive type=\"com.apple.InterfaceBuilder3.Cocoa.XIB\" "
         "version=\"7.02\"><data><object class=\"NSMutableArray\" key=\"IBDocument.RootObjects\" id=\"1\">"
         "<object class=\"NSCustomObject\" id=\"2\"><string key=\"NSClassName\">Owner</string></object>" + objects +
         "</object></data></archive>";
}

std::string label(const char* frame, const char* text) {
  return std::string("<object class=\"NSTextField\"><int key=\"NSvFlags\">256</int><string key=\"NSFrame\">") + frame +
         "</string><object class=\"NSTextFieldCell\" key=\"NSCell\"><int key=\"NSCellFlags\">68288064</int>"
         "<string key=\"NSContents\">" + text + "</string></object></object>";
}

// The first top-level view of a document, drawn unflipped into a picture of its size.
struct Drawn {
  std::shared_ptr<View> root;
  GraphicsContextRef context;
  std::shared_ptr<DrawingRecorder> recorder = std::make_shared<DrawingRecorder>();
  explicit Drawn(const std::string& document) {
    NibReadResult result = readNibData(document);
    EXPECT_TRUE(result) << result.error().reason;
    if (!result) return;
    for (const auto& object : result.nib().topLevelObjects()) {
      if (!root) root = std::dynamic_pointer_cast<View>(object);
    }
    if (!root) return;
    context = renderView(*root, 1.0, recorder);
  }
  std::vector<DrawingRecord> inside(Kind kind, Rect area) const {
    std::vector<DrawingRecord> found;
    for (const auto& r : recorder->recordsOfKind(kind)) {
      const Rect c = r.contextRect();
      if (c.x >= area.x - 0.5 && c.maxX() <= area.maxX() + 0.5 && c.y >= area.y - 0.5 && c.maxY() <= area.maxY() + 0.5) {
        found.push_back(r);
      }
    }
    return found;
  }
  const DrawingRecord* text(const char16_t* s) const {
    for (const auto& r : recorder->records()) {
      if (r.kind == Kind::DrawText && r.text == String(s)) return &r;
    }
    return nullptr;
  }
};

double midX(const Rect& r) { return r.x + r.w / 2; }
double midY(const Rect& r) { return r.y + r.h / 2; }

}  // namespace

TEST(DrawingFaults, SplitViewPanesStackFromTheTopWhateverTheSplitViewsClass) {
  // Frames of a split view's panes are in its own coordinates, which run downwards: the first pane
  // (at y 0) is the top one, the second starts below a 9 point divider. A split view of a plug-in
  // class keeps the layout of the class it extends.
  for (const char* cls : {"NSSplitView", "BWSplitView"}) {
    SCOPED_TRACE(cls);
    const Drawn drawn(archive(
        std::string("<object class=\"NSCustomView\"><object class=\"NSMutableArray\" key=\"NSSubviews\"><object class=\"") + cls +
        "\"><int key=\"NSvFlags\">274</int><object class=\"NSMutableArray\" key=\"NSSubviews\">"
        "<object class=\"NSCustomView\"><object class=\"NSMutableArray\" key=\"NSSubviews\">" +
        label("{{10, 10}, {100, 17}}", "Top pane") +
        "</object><string key=\"NSFrameSize\">{200, 100}</string></object>"
        "<object class=\"NSCustomView\"><object class=\"NSMutableArray\" key=\"NSSubviews\">" +
        label("{{10, 10}, {100, 17}}", "Bottom pane") +
        "</object><string key=\"NSFrame\">{{0, 109}, {200, 91}}</string></object></object>"
        "<string key=\"NSFrameSize\">{200, 200}</string></object></object>"
        "<string key=\"NSFrameSize\">{200, 200}</string></object>"));
    ASSERT_TRUE(drawn.text(u"Top pane") && drawn.text(u"Bottom pane"));
    // The picture runs upwards: the top pane is y 100 to 200, its label 10 above the pane's bottom
    // (and its text a point or two inside the label).
    EXPECT_NEAR(drawn.text(u"Top pane")->contextRect().y, 110, 2);
    EXPECT_NEAR(drawn.text(u"Bottom pane")->contextRect().y, 10, 2);
    EXPECT_EQ(drawn.inside(Kind::FillRect, {0, 91, 200, 9}).size(), 1u) << "the divider";
  }
}

TEST(DrawingFaults, AComboBoxHasItsArrowButtonAtItsRightEnd) {
  const Drawn drawn(xib(
      "<customView id=\"1\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"200\" height=\"60\"/><subviews>"
      "<comboBox id=\"2\"><rect key=\"frame\" x=\"20\" y=\"17\" width=\"150\" height=\"26\"/>"
      "<comboBoxCell key=\"cell\" bezelStyle=\"round\" title=\"Apple\" drawsBackground=\"YES\" id=\"3\">"
      "<objectValues><string>Apple</string><string>Pear</string></objectValues></comboBoxCell></comboBox>"
      "</subviews></customView>"));
  // The arrow: a filled triangle in the button at the right of the frame, the text left of it.
  const auto arrows = drawn.inside(Kind::FillPath, {150, 17, 20, 26});
  ASSERT_FALSE(arrows.empty());
  EXPECT_LT(arrows.back().contextRect().w, 10);
  ASSERT_NE(drawn.text(u"Apple"), nullptr);
  EXPECT_LE(drawn.text(u"Apple")->contextRect().maxX(), arrows.back().contextRect().x);
}

TEST(DrawingFaults, ProgressIndicatorsOfArchivesDrawAsTheirFlagsSay) {
  struct Row {
    int flags;
    const char* frame;
    bool shown, spinning;
  };
  // Flags from real archives: a small spinner hidden while stopped (0x310A), the same shown while
  // stopped, and an indeterminate bar (0x4006).
  const Row rows[] = {{0x310A, "{{20, 20}, {16, 16}}", false, true},
                      {0x110A, "{{20, 20}, {16, 16}}", true, true},
                      {0x4006, "{{20, 20}, {160, 12}}", true, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.flags);
    const Drawn drawn(archive(std::string("<object class=\"NSCustomView\"><object class=\"NSMutableArray\" key=\"NSSubviews\">"
                                          "<object class=\"NSProgressIndicator\"><int key=\"NSpiFlags\">") +
                              std::to_string(row.flags) + "</int><double key=\"NSMaxValue\">100</double><string key=\"NSFrame\">" +
                              row.frame + "</string></object></object><string key=\"NSFrameSize\">{200, 60}</string></object>"));
    const Rect frame = row.spinning ? Rect{20, 20, 16, 16} : Rect{20, 20, 160, 12};
    const auto spokes = drawn.inside(Kind::StrokeLine, frame);
    const auto fills = drawn.inside(Kind::FillPath, frame);
    EXPECT_EQ(!spokes.empty() || !fills.empty(), row.shown);
    if (!row.shown) continue;
    if (row.spinning) {
      ASSERT_EQ(spokes.size(), 12u);
      EXPECT_TRUE(fills.empty()) << "no bar";
      for (const auto& s : spokes) {
        // Each spoke points at the centre (28, 28).
        const Point a = s.contextFrom(), b = s.contextTo();
        EXPECT_NEAR((a.x - 28) * (b.y - 28), (a.y - 28) * (b.x - 28), 1e-6);
      }
    } else {
      ASSERT_FALSE(fills.empty());
      EXPECT_GT(fills.front().contextRect().w, 10 * fills.front().contextRect().h) << "a bar along the frame";
    }
  }
}

TEST(DrawingFaults, AKeyedArchivesSpinnerReadsAsTheCurrentDocumentOfTheSameWindowSays) {
  TQ_SKIP_WITHOUT_CORPUS();
  // Transmission's port check spinner, in its 2007 compiled nib and its current document.
  const auto current = test::corpusDir() / "transmission/macosx/Base.lproj/PrefsWindow.xib";
  std::ifstream in(current);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::smatch m;
  ASSERT_TRUE(std::regex_search(bytes, m, std::regex("<progressIndicator [^>]*style=\"spinning\"[^>]*>")));
  EXPECT_NE(m.str().find("displayedWhenStopped=\"NO\""), std::string::npos);
  EXPECT_NE(m.str().find("indeterminate=\"YES\""), std::string::npos);
  NibReadResult old = readNibFile((test::corpusDir() / "transmission-2007/macosx/English.lproj/PrefsWindow.nib").string());
  ASSERT_TRUE(old);
  std::vector<const ProgressIndicator*> found;
  std::function<void(const View&)> walk = [&](const View& v) {
    if (auto p = dynamic_cast<const ProgressIndicator*>(&v)) found.push_back(p);
    for (const auto& s : v.subviews()) walk(*s);
  };
  for (const auto& object : old.nib().topLevelObjects()) {
    if (auto v = std::dynamic_pointer_cast<View>(object)) walk(*v);
  }
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]->style(), ProgressIndicator::Style::Spinning);
  EXPECT_TRUE(found[0]->isIndeterminate());
  EXPECT_FALSE(found[0]->isDisplayedWhenStopped());
}

TEST(DrawingFaults, ACustomViewStandInNeverCoversRealContent) {
  struct Row {
    const char* siblings;
    bool name;
  };
  // A custom view alone shows its class name; one sharing its place with another view only its
  // outline.
  const Row rows[] = {
      {"", true},
      {"<textField id=\"4\"><rect key=\"frame\" x=\"30\" y=\"20\" width=\"100\" height=\"17\"/>"
       "<textFieldCell key=\"cell\" title=\"Real\" id=\"5\"/></textField>",
       false},
  };
  for (const Row& row : rows) {
    const Drawn drawn(xib(std::string("<customView id=\"1\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"200\" height=\"60\"/>"
                                      "<subviews>") + row.siblings +
                          "<customView id=\"2\" customClass=\"BadgeView\"><rect key=\"frame\" x=\"10\" y=\"10\" width=\"180\" "
                          "height=\"40\"/></customView></subviews></customView>"));
    EXPECT_EQ(drawn.text(u"BadgeView") != nullptr, row.name) << row.siblings;
    EXPECT_FALSE(drawn.inside(Kind::StrokePath, {10, 10, 180, 40}).empty()) << "the outline";
  }
}

TEST(DrawingFaults, APullDownDrawsOneArrowOfItsOwnAndAGearMenuItsGear) {
  const auto popUp = [](const char* frame, const char* cell, const char* firstItem) {
    return std::string("<popUpButton><rect key=\"frame\" ") + frame + "/><popUpButtonCell key=\"cell\" " + cell +
           "><font key=\"font\" metaFont=\"system\"/><menu key=\"menu\"><items>" + firstItem +
           "<menuItem title=\"Rename\"/></items></menu></popUpButtonCell></popUpButton>";
  };
  const Drawn drawn(xib(
      "<customView id=\"1\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"300\" height=\"40\"/><subviews>" +
      popUp("x=\"10\" y=\"8\" width=\"100\" height=\"25\"", "type=\"push\" bezelStyle=\"rounded\" borderStyle=\"borderAndBezel\"",
            "<menuItem title=\"One\" state=\"on\"/>") +
      popUp("x=\"120\" y=\"8\" width=\"100\" height=\"25\"",
            "type=\"push\" bezelStyle=\"rounded\" borderStyle=\"borderAndBezel\" pullsDown=\"YES\"",
            "<menuItem title=\"Actions\" hidden=\"YES\"/>") +
      popUp("x=\"230\" y=\"8\" width=\"51\" height=\"25\"",
            "type=\"roundTextured\" bezelStyle=\"texturedRounded\" imagePosition=\"only\" borderStyle=\"border\" pullsDown=\"YES\"",
            "<menuItem image=\"NSActionTemplate\" hidden=\"YES\"/>") +
      "</subviews></customView>"));
  const auto badges = [&](Rect frame) {
    int n = 0;
    for (const auto& f : drawn.inside(Kind::FillPath, frame)) {
      n += f.color->blueComponent() > f.color->redComponent() + 0.3;  // the pop-up's blue arrow badge
    }
    return n;
  };
  EXPECT_EQ(badges({10, 8, 100, 25}), 1) << "a pop-up keeps its badge";
  for (const Rect frame : {Rect{120, 8, 100, 25}, Rect{230, 8, 51, 25}}) {
    SCOPED_TRACE(frame.x);
    EXPECT_EQ(badges(frame), 0);
    // One chevron, stroked, in the right part of the button.
    const auto strokes = drawn.inside(Kind::StrokePath, frame);
    ASSERT_FALSE(strokes.empty());
    const Rect chevron = strokes.back().contextRect();
    EXPECT_GT(midX(chevron), midX(frame));
    EXPECT_LT(chevron.w, 10);
  }
  ASSERT_NE(drawn.text(u"Actions"), nullptr) << "a pull-down's title is its first item's";
  // The gear: a filled shape left of the chevron, centred on the button's height.
  const auto gear = drawn.inside(Kind::FillPath, {230, 8, 51, 25});
  ASSERT_FALSE(gear.empty());
  EXPECT_LT(gear.back().contextRect().maxX(), drawn.inside(Kind::StrokePath, {230, 8, 51, 25}).back().contextRect().x);
  EXPECT_NEAR(midY(gear.back().contextRect()), 8 + 12.5, 1.0);
}

TEST(DrawingFaults, TemplateStandInsKeepTheSizeOfThePlatformsImages) {
  // Documents declare the images as 14 x 13 (add), 14 x 4 (remove) and 15 x 15 (action) points, or
  // larger with newer tools; a large button draws them at that size, centred, not filling it.
  struct Row {
    const char* image;
    double w, h;
  };
  const Row rows[] = {{"NSAddTemplate", 14, 13}, {"NSRemoveTemplate", 14, 4}, {"NSActionTemplate", 15, 15}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.image);
    const Drawn drawn(xib(std::string("<customView id=\"1\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"60\" height=\"60\"/>"
                                      "<subviews><button id=\"2\"><rect key=\"frame\" x=\"10\" y=\"10\" width=\"40\" height=\"40\"/>"
                                      "<buttonCell key=\"cell\" type=\"smallSquare\" bezelStyle=\"smallSquare\" image=\"") +
                          row.image + "\" imagePosition=\"only\" borderStyle=\"border\" id=\"3\"/></button></subviews></customView>"));
    // The ink: every shape inside the button but its bezel.
    double x0 = 1e9, y0 = 1e9, x1 = -1e9, y1 = -1e9;
    for (Kind kind : {Kind::FillPath, Kind::StrokePath}) {
      for (const auto& r : drawn.inside(kind, {10, 10, 40, 40})) {
        const Rect c = r.contextRect();
        if (c.w < 39) x0 = std::min(x0, c.x), y0 = std::min(y0, c.y), x1 = std::max(x1, c.maxX()), y1 = std::max(y1, c.maxY());
      }
    }
    ASSERT_LT(x0, x1);
    const Rect ink{x0, y0, x1 - x0, y1 - y0};
    EXPECT_LE(ink.w, row.w);
    EXPECT_LE(ink.h, row.h);
    EXPECT_NEAR(midX(ink), 30, 1.0);
    EXPECT_NEAR(midY(ink), 30, 1.0);
  }
}

TEST(DrawingFaults, AScrollerShowsAKnobOnlyWhenThereIsSomethingToScroll) {
  struct Row {
    const char* attributes;
    int documentHeight;
    bool track;
    double knob;  // its length as a share of the track, 0: none
  };
  const Row rows[] = {{"", 100, true, 0}, {"", 300, true, 1.0 / 3}, {"autohidesScrollers=\"YES\"", 300, false, 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.documentHeight);
    const Drawn drawn(xib(std::string("<customView id=\"1\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"200\" height=\"100\"/>"
                                      "<subviews><scrollView borderType=\"none\" hasHorizontalScroller=\"NO\" ") +
                          row.attributes + " id=\"2\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"200\" height=\"100\"/>"
                          "<clipView key=\"contentView\" id=\"3\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"185\" height=\"100\"/>"
                          "<subviews><textView id=\"4\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"185\" height=\"" +
                          std::to_string(row.documentHeight) +
                          "\"/></textView></subviews></clipView><scroller key=\"verticalScroller\" horizontal=\"NO\" id=\"5\">"
                          "<rect key=\"frame\" x=\"185\" y=\"0\" width=\"15\" height=\"100\"/></scroller></scrollView>"
                          "</subviews></customView>"));
    const Rect scroller{185, 0, 15, 100};
    EXPECT_EQ(drawn.inside(Kind::FillRect, scroller).size() == 1, row.track);
    const auto knobs = drawn.inside(Kind::FillPath, scroller);
    ASSERT_EQ(knobs.size(), row.knob > 0 ? 1u : 0u);
    if (row.knob > 0) {
      // At the document's start: the top of the track (4 points of its 100 are margins).
      EXPECT_NEAR(knobs[0].contextRect().h, row.knob * 96, 1.0);
      EXPECT_NEAR(knobs[0].contextRect().maxY(), 98, 0.5);
    }
  }
}

namespace {

// Whether fontconfig knows a font that has the character (the system's own answer, without Pango).
bool someFontHas(char32_t c) {
  char command[64];
  std::snprintf(command, sizeof command, "fc-list ':charset=%x' family 2>/dev/null", static_cast<unsigned>(c));
  std::FILE* p = ::popen(command, "r");
  if (!p) return true;
  char buffer[256];
  const bool any = std::fgets(buffer, sizeof buffer, p) != nullptr;
  ::pclose(p);
  return any;
}

}  // namespace

TEST(DrawingFaults, TextNoFontCoversIsReportedByScriptAsTheFontConfigurationSays) {
  if (std::system("command -v fc-list >/dev/null 2>&1") != 0) GTEST_SKIP() << "no fc-list to ask";
  struct Row {
    const char16_t* text;
    char32_t first;
    const char16_t* script;
    const char16_t* characters;
  };
  // Chinese (covered once the set-up script's font is in) and Linear B (which no usual font has).
  const Row rows[] = {{u"\u504f\u597d\u8bbe\u7f6e OK", 0x504F, u"Hani", u"\u504f\u597d\u8bbe\u7f6e"},
                      {u"A \U00010000\U00010001\U00010000", 0x10000, u"Linb", u"\U00010000\U00010001"}};
  std::vector<UncoveredCharacters> heard;
  setUncoveredCharactersHandler([&](const UncoveredCharacters& u) { heard.push_back(u); });
  auto context = GraphicsContext::imageContext({300, 40}, false);
  GraphicsContext::setCurrentContext(context);
  for (const Row& row : rows) {
    SCOPED_TRACE(String(row.script).UTF8String());
    heard.clear();
    TextAttributes a;
    a.font = Font::fontWithName(u"Helvetica", 13);
    drawText(row.text, {0, 0, 300, 40}, a);
    const auto found = uncoveredCharacters(row.text, a.font);
    if (someFontHas(row.first)) {
      EXPECT_TRUE(heard.empty());
      EXPECT_TRUE(found.empty());
      continue;
    }
    ASSERT_EQ(heard.size(), 1u);
    ASSERT_EQ(found.size(), 1u);
    for (const auto& u : {heard[0], found[0]}) {
      EXPECT_EQ(u.script, String(row.script));
      EXPECT_EQ(u.characters, String(row.characters)) << "each once, in order";
      EXPECT_EQ(u.fontName, String(u"Helvetica"));
      EXPECT_EQ(u.text, String(row.text));
    }
  }
  GraphicsContext::setCurrentContext(nullptr);
  setUncoveredCharactersHandler(nullptr);
  heard.clear();
  EXPECT_TRUE(uncoveredCharacters(u"Plain Latin text", nullptr).empty());
}
