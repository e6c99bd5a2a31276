// Interfaces drawn from documents, each case a view of the fixtures in tests/data/drawing (the
// current document and the older XML archive) or a pane of tests/data/archive/Main.storyboard, and
// checked on the recording context: faults seen in rendered windows of real applications (split
// panes, combo boxes, spinners, custom view stand-ins, pull-downs, template images, scrollers),
// text views, the library's text cell, tokens, grids and stacks, plug-in controls, held
// images, and text in scripts no installed font covers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <regex>

#include "platform/ui/drawing/drawn.h"
#include "platform/ui/pixels.h"
#include "support/keyed_archive_writer.h"
#include "support/test_paths.h"
#include "tq/interface/tq_text_field_cell.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
#include "tq/platform/ui/drawing/pango_text_measurer.h"
#include "tq/platform/ui/drawing/string_drawing.h"
#include "tq/platform/ui/drawing/view_drawing.h"
#include "tq/platform/ui/model/progress_indicator.h"
#include "tq/platform/ui/model/text_field.h"

using namespace tq;
using Kind = DrawingRecord::Kind;
using test::Drawn;
using test::midX;
using test::midY;
using test::within;

namespace {

// A fixture of tests/data/drawing, read once.
const Nib& fixture(const char* name) {
  static std::map<std::string, std::unique_ptr<NibReadResult>> read;
  auto& r = read[name];
  if (!r) {
    (void)TQTextFieldCell::initTextCell(u"");  // the library's cell class is linked and registered
    r = std::make_unique<NibReadResult>(readNibFile((test::dataDir() / "drawing" / name).string()));
  }
  EXPECT_TRUE(*r) << name << ": " << r->error().reason;
  return r->nib();
}

std::shared_ptr<View> view(const char* id) { return std::dynamic_pointer_cast<View>(fixture("Views.xib").objectWithIdentifier(String::fromUTF8(id))); }
std::shared_ptr<View> archived(std::size_t i) { return std::dynamic_pointer_cast<View>(fixture("Archive.xib").topLevelObjects().at(i)); }

}  // namespace

TEST(DrawingFaults, SplitViewPanesStackFromTheTopWhateverTheSplitViewsClass) {
  // Frames of a split view's panes are in its own coordinates, which run downwards: the first pane
  // (at y 0) is the top one, the second starts below a 9 point divider. A split view of a plug-in
  // class keeps the layout of the class it extends.
  for (std::size_t i : {0u, 1u}) {
    SCOPED_TRACE(i ? "BWSplitView" : "NSSplitView");
    const Drawn drawn(archived(i));
    // The picture runs upwards: the top pane is y 100 to 200, its label 10 above the pane's bottom
    // (and its text a point or two inside the label).
    EXPECT_NEAR(drawn.textRect(u"Top pane").y, 110, 2);
    EXPECT_NEAR(drawn.textRect(u"Bottom pane").y, 10, 2);
    EXPECT_EQ(drawn.inside(Kind::FillRect, {0, 91, 200, 9}).size(), 1u) << "the divider";
  }
}

TEST(DrawingFaults, ProgressIndicatorsOfArchivesDrawAsTheirFlagsSay) {
  const struct {
    bool shown, spinning;
  } rows[] = {{false, true}, {true, true}, {true, false}};  // as the fixture's comment says
  for (std::size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const Drawn drawn(archived(2 + i));
    const Rect frame = rows[i].spinning ? Rect{20, 20, 16, 16} : Rect{20, 20, 160, 12};
    const auto spokes = drawn.inside(Kind::StrokeLine, frame);
    const auto fills = drawn.inside(Kind::FillPath, frame);
    EXPECT_EQ(!spokes.empty() || !fills.empty(), rows[i].shown);
    if (!rows[i].shown) continue;
    if (rows[i].spinning) {
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
  const std::string bytes = test::readAll(test::corpusDir() / "transmission/macosx/Base.lproj/PrefsWindow.xib");
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

TEST(DrawingFaults, AComboBoxHasItsArrowButtonAtItsRightEnd) {
  const Drawn drawn(view("combo"));
  // The arrow: a filled triangle in the button at the right of the frame, the text left of it.
  const auto arrows = drawn.inside(Kind::FillPath, {150, 17, 20, 26});
  ASSERT_FALSE(arrows.empty());
  EXPECT_LT(arrows.back().contextRect().w, 10);
  EXPECT_LE(drawn.textRect(u"Apple").maxX(), arrows.back().contextRect().x);
}

TEST(DrawingFaults, ACustomViewStandInNeverCoversRealContent) {
  // A custom view alone shows its class name; one sharing its place with another view only its outline.
  for (const auto& [id, name] : {std::pair{"custom-alone", true}, std::pair{"custom-beside", false}}) {
    const Drawn drawn(view(id));
    EXPECT_EQ(drawn.text(u"BadgeView") != nullptr, name) << id;
    EXPECT_FALSE(drawn.inside(Kind::StrokePath, {10, 10, 180, 40}).empty()) << "the outline";
  }
}

TEST(DrawingFaults, APullDownDrawsOneArrowOfItsOwnAndAGearMenuItsGear) {
  const Drawn drawn(view("popups"));
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
  const struct {
    const char* id;
    double w, h;
  } rows[] = {{"template-add", 14, 13}, {"template-remove", 14, 4}, {"template-action", 15, 15}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.id);
    const Drawn drawn(view(row.id));
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
  const struct {
    const char* id;
    bool track;
    double knob;  // its length as a share of the track, 0: none
  } rows[] = {{"scroll-short", true, 0}, {"scroll-long", true, 1.0 / 3}, {"scroll-hidden", false, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.id);
    const Drawn drawn(view(row.id));
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

// A text view in a scroll view draws the text it holds from its top left, wrapped to its width.
TEST(DocumentDrawing, TextViewsDrawTheirTextFromTheTop) {
  const Drawn drawn(view("textview"));
  const char16_t* text = u"Version 1.2 fixes the crash on launch and makes every transfer faster than before.";
  // The text view spans x 21 to 219 and y 21 to 139 (y up); its text wraps, starts at its top.
  const Rect t = drawn.textRect(text);
  EXPECT_TRUE(within(t, {21, 21, 198, 118})) << t.x << " " << t.y << " " << t.w << " " << t.h;
  EXPECT_NEAR(t.maxY(), 139, 1.0) << "from the top";
  EXPECT_LE(t.w, 198 - 10 + 1e-9) << "inside the line padding";
  EXPECT_GT(sizeOfText(text, Font::systemFontOfSize(12)).width, 198) << "so it wraps";
}

TEST(DocumentDrawing, TheLibrarysTextCellDrawsItselfCentredInTheField) {
  auto root = view("tqcell");
  ASSERT_TRUE(root);
  ASSERT_TRUE(std::dynamic_pointer_cast<TQTextFieldCell>(std::dynamic_pointer_cast<TextField>(root->subviews().at(0))->cell()));
  const Drawn drawn(root);
  ASSERT_NE(drawn.text(u"Centred"), nullptr);
  // The ink of the text is centred in the 70-high field (device rows 6 to 76), not at its top.
  int first = -1, last = -1;
  for (int row = 0; row < 80; ++row) {
    if (test::inkedPixels(*drawn.context, 10, row, 210, row + 1) == 0) continue;
    if (first < 0) first = row;
    last = row;
  }
  ASSERT_GE(first, 0) << "the text was drawn";
  EXPECT_NEAR((first + last + 1) / 2.0, 80 - (4 + 35), 4.0) << "rows " << first << " to " << last;
}

// Each token is a label of its own, left to right inside the field, on a filled rounded face.
TEST(DocumentDrawing, TokenFieldsShowEachTokenOnItsOwn) {
  const Drawn drawn(view("tokens"));
  EXPECT_EQ(drawn.text(u"red, green, blue"), nullptr) << "drawn as tokens, not as the field's text";
  double lastRight = 10;
  for (const char16_t* token : {u"red", u"green", u"blue"}) {
    const Rect box = drawn.textRect(token);
    EXPECT_GT(box.x, lastRight) << String(token).UTF8String();
    EXPECT_LT(box.maxX(), 310);
    lastRight = box.maxX();
    const auto faces = drawn.recorder->recordsOfKind(Kind::FillPath);
    EXPECT_TRUE(std::any_of(faces.begin(), faces.end(), [&](const DrawingRecord& f) {
      const Rect face = f.contextRect();
      return face.x <= box.x && face.maxX() >= box.maxX() && face.w < 100;
    })) << String(token).UTF8String();
  }
}

// A storyboard's panes show every control their grid, stack and container hold, each in its own
// frame (the grid's or stack's origin plus the control's), and nothing of a hidden grid row.
TEST(DocumentDrawing, GridStackAndEmbeddedControlsOfStoryboardPanes) {
  StoryboardReadResult r = readStoryboardFile((test::dataDir() / "archive" / "Main.storyboard").string());
  ASSERT_TRUE(r) << r.error().reason;
  const struct {
    std::size_t scene;
    const char16_t* text;
    Rect control;
  } expected[] = {{3, u"Name:", {10, 220, 100, 16}}, {3, u"Remember", {114, 218, 200, 18}}, {3, u"Embedded", {14, 14, 150, 16}},
                  {4, u"First", {10, 100, 100, 20}}, {4, u"Last", {10, 10, 100, 20}}};
  for (std::size_t scene : {3u, 4u}) {
    const Drawn drawn(r.storyboard().scenes().at(scene).view());
    for (const auto& e : expected) {
      if (e.scene != scene) continue;
      const Rect box = drawn.textRect(e.text);
      EXPECT_GE(box.x, e.control.x - 0.5) << String(e.text).UTF8String();
      EXPECT_LE(box.maxX(), e.control.maxX() + 0.5) << String(e.text).UTF8String();
      EXPECT_GE(midY(box), e.control.y) << String(e.text).UTF8String();
      EXPECT_LE(midY(box), e.control.maxY()) << String(e.text).UTF8String();
    }
    if (scene == 3) {
      EXPECT_EQ(drawn.text(u"Hidden row"), nullptr);
    }
  }
}

// A plug-in's pop-up button, known by its declared chain, draws as a pop-up showing its item.
TEST(DocumentDrawing, PlugInControlsDrawAsTheirKnownSuperclass) {
  test::KeyedArchiveWriter w;
  const uint64_t popUp = w.object("XYPopUp", {"NSPopUpButton", "NSButton", "NSControl", "NSView"});
  w.ref(popUp, "NSFrame", w.string("{{10, 20}, {150, 26}}"));
  const uint64_t cell = w.object("XYPopUpCell", {"NSPopUpButtonCell", "NSMenuItemCell", "NSButtonCell", "NSCell"});
  const uint64_t item = w.make("NSMenuItem", {{"NSTitle", w.string("Fastest")}});
  w.ref(cell, "NSMenu", w.make("NSMenu", {{"NSMenuItems", w.array({item})}}));
  w.ref(cell, "NSMenuItem", item);
  w.ref(popUp, "NSCell", cell);
  NibReadResult r = readNibData(w.binary({w.make("NSView", {{"NSFrameSize", w.string("{200, 60}")}, {"NSSubviews", w.array({popUp})}})}));
  ASSERT_TRUE(r) << r.error().reason;
  const Rect title = Drawn(std::dynamic_pointer_cast<View>(r.nib().topLevelObjects().at(0))).textRect(u"Fastest");
  EXPECT_GT(title.x, 10);
  EXPECT_LT(title.maxX(), 160);
}

TEST(DocumentDrawing, ImagesTheDocumentHoldsAreRead) {
  const auto& held = fixture("Views.xib").embeddedImages();
  ASSERT_EQ(held.size(), 1u) << "NSAddTemplate is only named";
  ImageRef image = Image::imageWithData(held.at(u"imageCell:7:image"));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->size(), (Size{8, 8}));
}

// --- text no installed font covers ------------------------------------------------------------------

namespace {

// Whether fontconfig knows a font that has the character (the system's own answer, without Pango).
bool someFontHas(char32_t c) {
  char command[80];
  std::snprintf(command, sizeof command, "fc-list ':charset=%x' family 2>/dev/null | grep -q .", static_cast<unsigned>(c));
  return std::system(command) == 0;
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
