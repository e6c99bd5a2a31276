// Drawing what the newer forms and elements hold: token fields' tokens, plug-in controls as their
// known superclass, the controls of grid and stack views in a storyboard scene.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "support/keyed_archive_writer.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
#include "tq/platform/ui/drawing/pango_text_measurer.h"
#include "tq/platform/ui/drawing/view_drawing.h"
#include "tq/platform/ui/model/view.h"

namespace tq {
namespace {

using Kind = DrawingRecord::Kind;

std::vector<DrawingRecord> recordsOf(const View& view) {
  PangoTextMeasurer::install();
  auto recorder = std::make_shared<DrawingRecorder>();
  EXPECT_NE(renderView(view, 1.0, recorder), nullptr);
  return recorder->records();
}

const DrawingRecord* textRecord(const std::vector<DrawingRecord>& records, const String& s) {
  for (const auto& r : records) {
    if (r.kind == Kind::DrawText && r.text == s) return &r;
  }
  return nullptr;
}

std::shared_ptr<View> firstView(const NibReadResult& r) {
  EXPECT_TRUE(r) << r.error().reason;
  return r ? std::dynamic_pointer_cast<View>(r.nib().topLevelObjects().at(0)) : nullptr;
}

// Each token is a label of its own, left to right inside the field, on a filled rounded face.
TEST(FormsDrawing, TokenFieldsShowEachTokenOnItsOwn) {
  NibReadResult r = readNibData(R"(<?xml version="1.0"?><document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<customView id="root"><rect key="frame" x="0" y="0" width="320" height="60"/><subviews>
 <tokenField id="TF"><rect key="frame" x="10" y="20" width="300" height="22"/><tokenFieldCell key="cell" borderStyle="bezel" title="red, green, blue" id="TFc"><font key="font" metaFont="system"/></tokenFieldCell></tokenField>
</subviews></customView></objects></document>)");
  auto root = firstView(r);
  ASSERT_TRUE(root);
  const auto records = recordsOf(*root);
  EXPECT_EQ(textRecord(records, u"red, green, blue"), nullptr) << "drawn as tokens, not as the field's text";
  double lastRight = 10;
  for (const char16_t* token : {u"red", u"green", u"blue"}) {
    const DrawingRecord* t = textRecord(records, token);
    ASSERT_NE(t, nullptr) << String(token).UTF8String();
    const Rect box = t->contextRect();
    EXPECT_GT(box.x, lastRight) << String(token).UTF8String();
    EXPECT_LT(box.maxX(), 310);
    lastRight = box.maxX();
    const bool onFace = std::any_of(records.begin(), records.end(), [&](const DrawingRecord& f) {
      const Rect face = f.contextRect();
      return f.kind == Kind::FillPath && face.x <= box.x && face.maxX() >= box.maxX() && face.w < 100;
    });
    EXPECT_TRUE(onFace) << String(token).UTF8String();
  }
}

// A plug-in's pop-up button, known by its declared chain, draws as a pop-up showing its item.
TEST(FormsDrawing, PlugInControlsDrawAsTheirKnownSuperclass) {
  test::KeyedArchiveWriter w;
  const uint64_t view = w.object("NSView");
  w.ref(view, "NSFrameSize", w.string("{200, 60}"));
  const uint64_t popUp = w.object("XYPopUp", {"NSPopUpButton", "NSButton", "NSControl", "NSView"});
  w.ref(popUp, "NSFrame", w.string("{{10, 20}, {150, 26}}"));
  const uint64_t cell = w.object("XYPopUpCell", {"NSPopUpButtonCell", "NSMenuItemCell", "NSButtonCell", "NSCell"});
  const uint64_t menu = w.object("NSMenu");
  const uint64_t item = w.object("NSMenuItem");
  w.ref(item, "NSTitle", w.string("Fastest"));
  w.ref(menu, "NSMenuItems", w.array({item}));
  w.ref(cell, "NSMenu", menu);
  w.ref(cell, "NSMenuItem", item);
  w.ref(popUp, "NSCell", cell);
  w.ref(view, "NSSubviews", w.array({popUp}));
  auto root = firstView(readNibData(w.binary({view})));
  ASSERT_TRUE(root);
  const auto records = recordsOf(*root);
  const DrawingRecord* title = textRecord(records, u"Fastest");
  ASSERT_NE(title, nullptr);
  EXPECT_GT(title->contextRect().x, 10);
  EXPECT_LT(title->contextRect().maxX(), 160);
}

// A storyboard scene's grid and stack view show every control they hold, each in its own frame.
TEST(FormsDrawing, GridAndStackViewsOfAStoryboardSceneShowTheirControls) {
  StoryboardReadResult r = readStoryboardData(R"(<?xml version="1.0"?>
<document type="com.apple.InterfaceBuilder3.Cocoa.Storyboard.XIB" version="3.0"><scenes><scene sceneID="s"><objects>
 <viewController id="vc" sceneMemberID="viewController"><view key="view" id="v"><rect key="frame" x="0" y="0" width="400" height="200"/><subviews>
  <gridView id="g"><rect key="frame" x="10" y="100" width="380" height="90"/>
   <rows><gridRow id="r1"/><gridRow id="r2"/></rows><columns><gridColumn id="c1"/><gridColumn id="c2"/></columns>
   <gridCells>
    <gridCell row="r1" column="c1" id="a"><textField key="contentView" id="t1"><rect key="frame" x="0" y="60" width="100" height="17"/><textFieldCell key="cell" title="Brightness:" id="t1c"/></textField></gridCell>
    <gridCell row="r1" column="c2" id="b"><button key="contentView" id="b1"><rect key="frame" x="110" y="58" width="200" height="18"/><buttonCell key="cell" type="check" title="Smooth" id="b1c"/></button></gridCell>
    <gridCell row="r2" column="c2" id="c"><textField key="contentView" id="t2"><rect key="frame" x="110" y="20" width="200" height="17"/><textFieldCell key="cell" title="Applied at once." id="t2c"/></textField></gridCell>
   </gridCells>
  </gridView>
  <stackView orientation="horizontal" id="st"><rect key="frame" x="10" y="10" width="380" height="30"/>
   <beginningViews><button id="sb1"><rect key="frame" x="0" y="0" width="90" height="30"/><buttonCell key="cell" title="Reset" id="sb1c"/></button></beginningViews>
   <endViews><button id="sb2"><rect key="frame" x="290" y="0" width="90" height="30"/><buttonCell key="cell" title="Done" id="sb2c"/></button></endViews>
  </stackView>
 </subviews></view></viewController>
</objects></scene></scenes></document>)");
  ASSERT_TRUE(r) << r.error().reason;
  auto view = r.storyboard().scenes().at(0).view();
  ASSERT_TRUE(view);
  const auto records = recordsOf(*view);
  // (text, its control's frame in the picture: the grid's or stack's origin plus the control's)
  const struct {
    const char16_t* text;
    Rect control;
  } expected[] = {{u"Brightness:", {10, 160, 100, 17}},
                  {u"Smooth", {120, 158, 200, 18}},
                  {u"Applied at once.", {120, 120, 200, 17}},
                  {u"Reset", {10, 10, 90, 30}},
                  {u"Done", {300, 10, 90, 30}}};
  for (const auto& e : expected) {
    const DrawingRecord* t = textRecord(records, e.text);
    ASSERT_NE(t, nullptr) << String(e.text).UTF8String();
    const Rect box = t->contextRect();
    EXPECT_GE(box.x, e.control.x - 0.5) << String(e.text).UTF8String();
    EXPECT_LE(box.maxX(), e.control.maxX() + 0.5) << String(e.text).UTF8String();
    EXPECT_GE(box.y + box.h / 2, e.control.y) << String(e.text).UTF8String();
    EXPECT_LE(box.y + box.h / 2, e.control.maxY()) << String(e.text).UTF8String();
  }
}

}  // namespace
}  // namespace tq
