// The interface document reader: synthetic documents for what the corpus cannot show (structure,
// connections, custom classes, malformed input, numbers and texts as written), and facts of the
// corpus files beyond their strings (those are compared by nib_forms_corpus_test).
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "support/test_paths.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/class_registry.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/window.h"

namespace tq {
namespace {

std::string document(const std::string& objects) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0" toolsVersion="24506" targetRuntime="MacOSX.Cocoa"><objects>
  <customObject id="-2" userLabel="File's Owner" customClass="Controller">
    <connections><outlet property="window" destination="w1" id="c1"/><outlet property="missing" destination="nowhere" id="c2"/></connections>
  </customObject>
  <customObject id="-1" userLabel="First Responder" customClass="FirstResponder"/>
  <customObject id="-3" userLabel="Application" customClass="NSObject"/>
)" + objects + "\n</objects></document>";
}

const char* kWindow = R"(
<window title="Settings" releasedWhenClosed="NO" id="w1">
  <windowStyleMask key="styleMask" titled="YES" closable="YES"/>
  <rect key="contentRect" x="196" y="240" width="400" height="300"/>
  <view key="contentView" id="v1"><rect key="frame" x="0.0" y="0.0" width="400" height="300"/><subviews>
    <button id="b1"><rect key="frame" x="18" y="20" width="120" height="18"/>
      <buttonCell key="cell" type="check" title="Remember me" bezelStyle="regularSquare" imagePosition="left" state="on" inset="2" id="bc1">
        <behavior key="behavior" changeContents="YES" doesNotDimImage="YES" lightByContents="YES"/><font key="font" metaFont="system"/>
      </buttonCell>
      <connections><action selector="toggle:" target="-2" id="a1"/></connections>
    </button>
    <textField id="t1" customClass="FancyField"><rect key="frame" x="18" y="50" width="200" height="22"/>
      <textFieldCell key="cell" lineBreakMode="truncatingTail" title="Name" placeholderString="Your name" drawsBackground="YES" id="tc1" customClass="FancyCell">
        <font key="font" metaFont="smallSystem"/><color key="backgroundColor" name="textBackgroundColor" catalog="System" colorSpace="catalog"/>
      </textFieldCell>
      <connections><binding destination="-2" name="displayPatternValue1" keyPath="self.count" id="bd1"><dictionary key="options">
        <string key="NSDisplayPattern">%{value1}@ files</string>
        <string key="NSNullPlaceholder" base64-UTF8="YES">
Tm9uZcKg
</string>
        <integer key="NSNoSelectionPlaceholder" value="-1"/><string key="NSValueTransformerName">NSNegateBoolean</string>
      </dictionary></binding></connections>
    </textField>
    <popUpButton id="p1"><rect key="frame" x="18" y="80" width="100" height="25"/>
      <popUpButtonCell key="cell" type="push" title="Two" bezelStyle="rounded" selectedItem="i2" id="pc1"><menu key="menu" id="m1"><items>
        <menuItem title="One" id="i1"/><menuItem title="Two" state="on" id="i2"/><menuItem isSeparatorItem="YES" id="i3"/>
      </items></menu></popUpButtonCell>
    </popUpButton>
  </subviews></view>
</window>
<menu title="Actions" id="m2"><items>
  <menuItem title="Open" keyEquivalent="o" id="mi1"><connections><action selector="open:" target="-1" id="a2"/></connections></menuItem>
  <menuItem title="More" id="mi2"><modifierMask key="keyEquivalentModifierMask" shift="YES"/>
    <menu key="submenu" title="More" id="m3"><items><menuItem title="Less" id="mi3"/></items></menu></menuItem>
</items></menu>
<customObject id="ctl" customClass="HelperController"/>
)";

// An owner that records what the archive connects to it.
class Owner : public GenericObject {
 public:
  void connectAction(const String& selector, const std::shared_ptr<Object>& sender) override { actions.emplace_back(selector, sender); }
  void awakeFromNib() override { ++awakened; }
  std::vector<std::pair<String, std::shared_ptr<Object>>> actions;
  int awakened = 0;
};

class FancyCell : public TextFieldCell {
 public:
  String className() const override { return u"FancyCell"; }
  void awakeFromNib() override { awokeWithPlaceholder = placeholderString(); }
  String awokeWithPlaceholder;
};

NibReadResult readWithOwner(const std::string& doc, const std::shared_ptr<Owner>& owner, ClassRegistry* registry = nullptr) {
  NibLoadOptions options;
  options.owner = owner;
  options.registry = registry;
  return readNibData(doc, options);
}

TEST(NibReader, BuildsTheObjectsOfADocumentAndConnectsThemToTheOwner) {
  auto owner = std::make_shared<Owner>();
  NibReadResult r = readWithOwner(document(kWindow), owner);
  ASSERT_TRUE(r) << r.error().reason;
  const Nib& nib = r.nib();
  // Top-level objects in order, without the placeholders.
  const auto& top = nib.topLevelObjects();
  ASSERT_EQ(top.size(), 3u);
  EXPECT_EQ(top[1]->className(), String(u"NSMenu"));
  auto helper = std::dynamic_pointer_cast<InterfaceObject>(top[2]);
  EXPECT_EQ(helper->className(), String(u"NSObject"));
  EXPECT_EQ(helper->customClassName(), String(u"HelperController"));
  EXPECT_EQ(nib.objectWithIdentifier(u"-2"), owner);
  EXPECT_EQ(owner->awakened, 1);
  ASSERT_EQ(nib.warnings().size(), 1u) << "the outlet to an unknown object";
  EXPECT_NE(nib.warnings()[0].find("nowhere"), std::string::npos);

  auto window = std::dynamic_pointer_cast<Window>(top[0]);
  ASSERT_TRUE(window);
  EXPECT_EQ(window->contentRect(), (Rect{196, 240, 400, 300}));
  EXPECT_EQ(window->styleMask(), NSWindowStyleMaskTitled | NSWindowStyleMaskClosable);
  EXPECT_FALSE(window->isReleasedWhenClosed());
  const auto& views = window->contentView()->subviews();
  ASSERT_EQ(views.size(), 3u);
  auto check = std::dynamic_pointer_cast<Button>(views[0]);
  ASSERT_TRUE(check);
  EXPECT_EQ(check->frame(), (Rect{18, 20, 120, 18}));
  EXPECT_EQ(check->buttonCell()->buttonType(), NSSwitchButton);
  EXPECT_EQ(check->imagePosition(), CellImagePosition::ImageLeft);
  EXPECT_EQ(check->state(), 1);
  EXPECT_EQ(check->window(), window.get());
  auto field = std::dynamic_pointer_cast<TextField>(views[1]);
  ASSERT_TRUE(field);
  EXPECT_EQ(field->customClassName(), String(u"FancyField")) << "unregistered: the base class stands in";
  EXPECT_EQ(field->className(), String(u"NSTextField"));
  auto cell = field->textFieldCell();
  EXPECT_EQ(cell->font().size, 11);
  EXPECT_EQ(cell->lineBreakMode(), NSLineBreakByTruncatingTail);
  EXPECT_TRUE(cell->drawsBackground());
  ASSERT_TRUE(cell->backgroundColor());
  EXPECT_EQ(cell->backgroundColor()->name, String(u"textBackgroundColor"));
  auto popUp = std::dynamic_pointer_cast<PopUpButton>(views[2]);
  ASSERT_TRUE(popUp);
  ASSERT_EQ(popUp->itemArray().size(), 3u);
  EXPECT_EQ(popUp->indexOfSelectedItem(), 1);
  EXPECT_TRUE(popUp->itemArray()[2]->isSeparatorItem());

  auto menu = std::dynamic_pointer_cast<Menu>(top[1]);
  auto open = menu->itemAtIndex(0), more = menu->itemAtIndex(1);
  EXPECT_EQ(open->keyEquivalent(), String(u"o"));
  EXPECT_EQ(open->keyEquivalentModifierMask(), 1ul << 20) << "command by default";
  EXPECT_EQ(open->action(), String(u"open:"));
  EXPECT_EQ(open->target(), nullptr) << "First Responder";
  EXPECT_EQ(more->keyEquivalentModifierMask(), 1ul << 17);
  ASSERT_TRUE(more->submenu());
  EXPECT_EQ(more->submenu()->supermenu(), menu.get());

  // Bindings: the binder of the group, the pattern, placeholders by marker, the other options.
  auto binder = field->binderForBinding(u"displayPatternValue1");
  ASSERT_TRUE(binder);
  EXPECT_EQ(binder->className(), String(u"NSDisplayPatternBinder"));
  EXPECT_EQ(binder->displayPattern(), String(u"%{value1}@ files"));
  auto info = binder->bindingInfos().at(0);
  EXPECT_EQ(info->observedObject(), owner);
  EXPECT_EQ(info->keyPath(), String(u"self.count"));
  EXPECT_EQ(info->placeholderForMarker(NSNullMarker).stringValue(), String(u"None\u00a0")) << "base64 UTF-8 decoded";
  EXPECT_EQ(info->placeholderForMarker(NSNoSelectionMarker).type(), Value::Type::Integer);
  EXPECT_EQ(info->placeholderForMarker(NSNoSelectionMarker).intValue(), -1);
  EXPECT_TRUE(info->placeholderForMarker(NSMultipleValuesMarker).isNil());
  EXPECT_EQ(info->options().objectForKey(u"NSValueTransformerName").stringValue(), String(u"NSNegateBoolean"));
  EXPECT_EQ(field->binderForBinding(u"value"), nullptr);

  // Outlets and actions reach the owner.
  EXPECT_EQ(owner->outlet(u"window"), window);
  ASSERT_EQ(owner->actions.size(), 1u);
  EXPECT_EQ(owner->actions[0].first, String(u"toggle:"));
  EXPECT_EQ(owner->actions[0].second, check);
  EXPECT_EQ(check->target(), owner);
  EXPECT_EQ(check->action(), String(u"toggle:"));
  // Without an owner, nothing points at one.
  NibReadResult bare = readNibData(document(kWindow));
  ASSERT_TRUE(bare);
  EXPECT_TRUE(std::dynamic_pointer_cast<Button>(bare.nib().objectWithIdentifier(u"b1"))->action().isNil());
}

TEST(NibReader, CustomClassesComeFromTheRegistryAndUnknownOnesFallBack) {
  ClassRegistry registry;
  registry.registerClass<FancyCell>(u"FancyCell");
  registry.registerClass<Menu>(u"FancyField");  // not a view: the base class must stand in
  NibReadResult r = readWithOwner(document(kWindow), nullptr, &registry);
  ASSERT_TRUE(r);
  auto field = std::dynamic_pointer_cast<TextField>(r.nib().objectWithIdentifier(u"t1"));
  ASSERT_TRUE(field);
  EXPECT_EQ(field->customClassName(), String(u"FancyField"));
  auto cell = std::dynamic_pointer_cast<FancyCell>(field->cell());
  ASSERT_TRUE(cell) << field->cell()->className().UTF8String();
  EXPECT_TRUE(cell->customClassName().isNil());
  EXPECT_EQ(cell->awokeWithPlaceholder, String(u"Your name")) << "awakeFromNib after decoding";

  NibReadResult other = readNibData(document(R"(
    <window title="Inspector" customClass="NSPanel" id="w"><rect key="contentRect" x="0" y="0" width="10" height="10"/></window>
    <panel title="Palette" id="p"/>
    <stepper id="s"><rect key="frame" x="1" y="2" width="15" height="22"/><stepperCell key="cell" id="sc"/></stepper>
    <progressIndicator id="pi"><rect key="frame" x="1" y="2" width="15" height="22"/></progressIndicator>
    <arrayController id="ac" objectClassName="Thing"/>)"));
  ASSERT_TRUE(other);
  const auto& top = other.nib().topLevelObjects();
  ASSERT_EQ(top.size(), 5u);
  EXPECT_TRUE(top[0]->isKindOfClass<Panel>());
  EXPECT_EQ(top[0]->className(), String(u"NSPanel"));
  EXPECT_TRUE(top[1]->isKindOfClass<Panel>());
  auto stepper = std::dynamic_pointer_cast<Control>(top[2]);
  ASSERT_TRUE(stepper);
  EXPECT_EQ(stepper->className(), String(u"NSStepper"));
  EXPECT_EQ(stepper->cell()->className(), String(u"NSStepperCell"));
  EXPECT_TRUE(stepper->cell()->isKindOfClass<ActionCell>());
  EXPECT_EQ(top[3]->className(), String(u"NSProgressIndicator"));
  EXPECT_TRUE(top[3]->isKindOfClass<View>());
  auto controller = std::dynamic_pointer_cast<GenericObject>(top[4]);
  ASSERT_TRUE(controller);
  EXPECT_EQ(controller->className(), String(u"NSArrayController"));
  EXPECT_EQ(controller->attributes().objectForKey(u"objectClassName").stringValue(), String(u"Thing"));
}

TEST(NibReader, TopLevelObjectsAloneOwnTheResult) {
  std::weak_ptr<Object> window, cell, menuItem;
  {
    NibReadResult r = readNibData(document(kWindow));
    ASSERT_TRUE(r);
    window = r.nib().topLevelObjects()[0];
    cell = r.nib().objectWithIdentifier(u"bc1");
    menuItem = r.nib().objectWithIdentifier(u"mi3");
    std::vector<std::shared_ptr<Object>> kept = r.nib().topLevelObjects();
    r = NibReadResult(NibReadError{"gone", -1});
    ASSERT_FALSE(cell.expired()) << "kept through the window";
    ASSERT_FALSE(menuItem.expired());
  }
  EXPECT_TRUE(window.expired());
  EXPECT_TRUE(cell.expired());
  EXPECT_TRUE(menuItem.expired());
}

TEST(NibReader, ReportsDocumentsThatDoNotParse) {
  std::string deep;
  for (int i = 0; i < 300; ++i) deep = "<view><subviews>" + deep + "</subviews></view>";
  const struct {
    std::string bytes;
    const char* reasonPart;
  } cases[] = {
      {"", "XML"},
      {"<document><objects>", "XML"},
      {"<plist/>", "property list"},
      {"<html/>", "not an interface document"},
      {"<archive type=\"com.apple.InterfaceBuilder3.Cocoa.XIB\" version=\"7.10\"/>", "XML archive: the archive has no data"},
      {"<document type=\"com.apple.InterfaceBuilder3.CocoaTouch.XIB\"><objects/></document>", "not a Cocoa"},
      {"<document type=\"com.apple.InterfaceBuilder3.Cocoa.XIB\"/>", "no objects"},
      {"bplist00\x01\x02", "compiled"},
      {document(deep), "nested"},
  };
  for (const auto& c : cases) {
    NibReadResult r = readNibData(c.bytes);
    EXPECT_FALSE(r) << c.bytes;
    EXPECT_NE(r.error().reason.find(c.reasonPart), std::string::npos) << r.error().reason;
    EXPECT_THROW(r.nib(), Exception);
  }
  NibReadResult broken = readNibData("<document><objects><window id=\"x\"></objects></document>");
  ASSERT_FALSE(broken);
  EXPECT_GT(broken.error().offset, 0);
  NibReadResult missing = readNibFile("/nonexistent/Main.xib");
  EXPECT_FALSE(missing);
  EXPECT_NE(missing.error().reason.find("/nonexistent/Main.xib"), std::string::npos);
}

TEST(NibReader, ResolvesGridsTabsTablesAndCrossReferences) {
  NibReadResult r = readNibData(document(R"(
    <customView id="cv"><rect key="frame" x="0" y="0" width="300" height="200"/><subviews>
      <matrix id="m"><rect key="frame" x="0" y="0" width="90" height="40"/>
        <cells><column><buttonCell type="radio" title="A" id="c1"/><buttonCell type="radio" title="B" id="c2"/></column>
               <column><buttonCell type="radio" title="C" id="c3"/><buttonCell type="radio" title="D" id="c4"/></column></cells></matrix>
      <tabView initialItem="t2" id="tv"><rect key="frame" x="0" y="0" width="90" height="40"/><tabViewItems>
        <tabViewItem label="One" id="t1"><view key="view" id="tv1"/></tabViewItem>
        <tabViewItem label="Two" id="t2"><view key="view" id="tv2"/></tabViewItem></tabViewItems></tabView>
      <scrollView id="s"><rect key="frame" x="0" y="0" width="90" height="40"/>
        <clipView key="contentView" id="cl"><subviews>
          <outlineView headerView="hv" outlineTableColumn="col2" id="ov"><rect key="frame" x="0" y="0" width="90" height="40"/>
            <tableColumns>
              <tableColumn identifier="a" width="50" id="col1"><tableHeaderCell key="headerCell" title="Name"/></tableColumn>
              <tableColumn identifier="b" width="40" hidden="YES" id="col2"><tableHeaderCell key="headerCell" title="Size"/></tableColumn>
            </tableColumns></outlineView></subviews></clipView>
        <scroller key="verticalScroller" id="vs"><rect key="frame" x="80" y="0" width="10" height="40"/></scroller>
        <tableHeaderView key="headerView" id="hv"><rect key="frame" x="0" y="0" width="90" height="17"/></tableHeaderView></scrollView>
    </subviews></customView>)"));
  ASSERT_TRUE(r) << r.error().reason;
  EXPECT_TRUE(r.nib().warnings().empty());
  auto matrix = std::dynamic_pointer_cast<Matrix>(r.nib().objectWithIdentifier(u"m"));
  ASSERT_TRUE(matrix);
  std::vector<String> order;
  for (const auto& c : matrix->cells()) order.push_back(c->title());
  EXPECT_EQ(order, (std::vector<String>{u"A", u"C", u"B", u"D"})) << "archived by column, kept by row";
  EXPECT_EQ(std::dynamic_pointer_cast<ButtonCell>(matrix->cells()[0])->buttonType(), NSRadioButton);
  auto tabs = std::dynamic_pointer_cast<TabView>(r.nib().objectWithIdentifier(u"tv"));
  ASSERT_TRUE(tabs);
  EXPECT_EQ(tabs->indexOfSelectedTabViewItem(), 1);
  EXPECT_EQ(tabs->subviews().at(0), r.nib().objectWithIdentifier(u"tv2"));
  auto scroll = std::dynamic_pointer_cast<ScrollView>(r.nib().objectWithIdentifier(u"s"));
  auto outline = std::dynamic_pointer_cast<OutlineView>(r.nib().objectWithIdentifier(u"ov"));
  ASSERT_TRUE(scroll && outline);
  EXPECT_EQ(scroll->documentView(), outline);
  EXPECT_EQ(scroll->verticalScroller()->className(), String(u"NSScroller"));
  EXPECT_EQ(scroll->headerView(), r.nib().objectWithIdentifier(u"hv"));
  EXPECT_EQ(outline->headerView(), scroll->headerView());
  ASSERT_EQ(outline->numberOfColumns(), 2);
  EXPECT_EQ(outline->outlineTableColumn(), outline->tableColumns()[1]);
  EXPECT_TRUE(outline->tableColumns()[1]->isHidden());
  EXPECT_EQ(outline->tableColumns()[0]->width(), 50);
}

// Without an owner a binding observes nothing; an option of a kind a placeholder cannot be is
// warned about; an element may carry any number of attributes; an identifier given twice belongs
// to the later object for connections, references and lookups alike; empty options stay present.
TEST(NibReader, BindingsManyAttributesAndRepeatedIdentifiers) {
  NibReadResult unread = readNibData(document(R"(
    <textField id="t"><rect key="frame" x="0" y="0" width="9" height="9"/><textFieldCell key="cell" id="tc"/>
      <connections><binding destination="-2" name="value" keyPath="self.x" id="b">
        <dictionary key="options"><date key="NSNullPlaceholder"/><bool key="NSValidatesImmediately" value="YES"/></dictionary>
      </binding></connections></textField>)"));
  ASSERT_TRUE(unread);
  auto info = std::dynamic_pointer_cast<TextField>(unread.nib().topLevelObjects().at(0))->binderForBinding(u"value")->bindingInfos()[0];
  EXPECT_EQ(info->observedObject(), nullptr);
  EXPECT_TRUE(info->placeholderForMarker(NSNullMarker).isNil());
  EXPECT_TRUE(info->options().objectForKey(u"NSValidatesImmediately").boolValue());
  // Only the date option: without an owner, the owner's outlets (one to "nowhere") are not looked at.
  ASSERT_EQ(unread.nib().warnings().size(), 1u);
  EXPECT_NE(unread.nib().warnings()[0].find("NSNullPlaceholder"), std::string::npos);

  std::string filler;
  for (int i = 0; i < 45; ++i) filler += " x" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
  NibReadResult r = readNibData(document(R"(
    <button id="b"><rect key="frame" x="0" y="0" width="9" height="9"/>
      <buttonCell key="cell" type="push" id="bc")" + filler + R"( title="Last" bezelStyle="rounded" state="on"/>
      <connections><binding destination="dup" name="enabled" keyPath="self.on" id="k"/></connections></button>
    <customObject id="dup" customClass="First"/>
    <customObject id="dup" customClass="Second")" + filler + R"( tail="end"/>)"));
  ASSERT_TRUE(r) << r.error().reason;
  auto button = std::dynamic_pointer_cast<Button>(r.nib().objectWithIdentifier(u"b"));
  ASSERT_TRUE(button);
  auto cell = button->buttonCell();
  EXPECT_EQ(cell->title(), String(u"Last")) << "an attribute after 45 others";
  EXPECT_EQ(cell->bezelStyle(), String(u"rounded"));
  EXPECT_EQ(cell->state(), 1);
  auto second = std::dynamic_pointer_cast<GenericObject>(r.nib().objectWithIdentifier(u"dup"));
  ASSERT_TRUE(second);
  EXPECT_EQ(second->customClassName(), String(u"Second"));
  EXPECT_EQ(second->attributes().objectForKey(u"tail").stringValue(), String(u"end")) << "packed past the gathered attributes";
  EXPECT_EQ(second->attributes().objectForKey(u"x44").stringValue(), String(u"44"));
  EXPECT_EQ(second->attributes().count(), 48u) << "id, customClass, 45 fillers and tail";
  auto binder = button->binderForBinding(u"enabled");
  ASSERT_TRUE(binder);
  EXPECT_EQ(binder->bindingInfos()[0]->observedObject(), second) << "the binding reaches the later object";
  const Dictionary options = binder->bindingInfos()[0]->options();
  EXPECT_FALSE(options.isNil());
  EXPECT_EQ(options.count(), 0u);
}

// A button with another base in front of it: its view part does not start where the object does.
struct Tally {
  virtual ~Tally() = default;
  long count = 7;
};
class TalliedButton : public Tally, public Button {
 public:
  String className() const override { return u"TalliedButton"; }
};

// Base64 as written in documents: the standard alphabet with padding, then white space put in.
std::string base64(const std::string& bytes) {
  static const char* kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t n = std::min<std::size_t>(3, bytes.size() - i);
    unsigned v = 0;
    for (std::size_t k = 0; k < 3; ++k) v = v << 8 | (k < n ? static_cast<unsigned char>(bytes[i + k]) : 0u);
    for (std::size_t k = 0; k < 4; ++k) out += k <= n ? kAlphabet[(v >> (18 - 6 * k)) & 63] : '=';
  }
  return out;
}

TEST(NibReader, NumbersTextsAndClassesAsWritten) {
  // Numbers, each against what the C library's strtod makes of the same text (0 where it reads none).
  const std::vector<std::string> numbers = {"0.1", "-2.5", "007", "1e3", "12abc", " 5", "1.", ".5", "+4", "-0",
                                            "123456789012345678", "0.30000000000000004", "999999999999999.9",
                                            "12345.678901234", "1.7976931348623157e308", "0.000000000000000000001",
                                            ".", "", "-", "abc", "311.5"};
  // Texts of every length around the four-character groups, with white space at changing places.
  std::vector<std::string> texts;
  for (std::size_t n = 0; n < 14; ++n) texts.push_back(std::string("h\xC3\xA9llo w\xE2\x82\xAC" "rld 12345").substr(0, n));
  std::string objects = "<customView id=\"top\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"1\" height=\"1\"/><subviews>";
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    objects += "<customView id=\"n" + std::to_string(i) + "\"><rect key=\"frame\" x=\"" + numbers[i] + "\" y=\"0\" width=\"1\" height=\"1\"/></customView>";
  }
  // Two buttons of the class above: the second is set up from what the first taught the reader.
  for (const std::string id : {"tb1", "tb2"}) {
    objects += "<button id=\"" + id + R"(" customClass="TalliedButton"><rect key="frame" x="3" y="4" width="5" height="6"/>
      <buttonCell key="cell" type="push" title=")" + id + R"(" id=")" + id + R"(c"/>
      <connections><action selector="press:" target="-2" id=")" + id + R"(a"/></connections></button>)";
  }
  // A view with more child elements than the reader lists: its frame and connections come after them.
  objects += R"(<customView id="many">)";
  for (int i = 0; i < 20; ++i) objects += "<extra key=\"e" + std::to_string(i) + "\"/>";
  objects += R"(<rect key="frame" x="9" y="8" width="7" height="6"/><connections><outlet property="helper" destination="tb1" id="o1"/></connections></customView>)";
  objects += "</subviews></customView><menu title=\"T\" id=\"texts\"><items>";
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::string encoded = base64(texts[i]);
    for (std::size_t at = i % 5; at < encoded.size(); at += 3 + i % 4) encoded.insert(at, i % 2 ? "\n " : " ");
    objects += "<menuItem id=\"s" + std::to_string(i) + "\"><string key=\"title\" base64-UTF8=\"YES\">" + encoded + "</string></menuItem>";
  }
  objects += "</items></menu>";

  ClassRegistry registry;
  registry.registerClass<TalliedButton>(u"TalliedButton");
  auto owner = std::make_shared<Owner>();
  NibReadResult r = readWithOwner(document(objects), owner, &registry);
  ASSERT_TRUE(r) << r.error().reason;
  const Nib& nib = r.nib();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    auto view = std::dynamic_pointer_cast<View>(nib.objectWithIdentifier(String::fromUTF8("n" + std::to_string(i))));
    ASSERT_TRUE(view);
    char* end = nullptr;
    const double parsed = std::strtod(numbers[i].c_str(), &end);
    const double expected = end == numbers[i].c_str() ? 0 : parsed;
    EXPECT_EQ(view->frame().x, expected) << "x=\"" << numbers[i] << "\"";
    EXPECT_EQ(std::signbit(view->frame().x), std::signbit(expected)) << "x=\"" << numbers[i] << "\"";
  }
  for (const char* id : {"tb1", "tb2"}) {
    auto button = std::dynamic_pointer_cast<TalliedButton>(nib.objectWithIdentifier(String::fromUTF8(id)));
    ASSERT_TRUE(button) << id;
    EXPECT_EQ(button->count, 7);
    EXPECT_EQ(button->frame(), (Rect{3, 4, 5, 6}));
    ASSERT_TRUE(button->cell()) << id;
    EXPECT_EQ(button->cell()->title(), String::fromUTF8(id));
    EXPECT_EQ(button->action(), String(u"press:"));
    EXPECT_EQ(button->target(), owner);
  }
  ASSERT_EQ(owner->actions.size(), 2u);
  EXPECT_EQ(owner->actions[1].second, nib.objectWithIdentifier(u"tb2"));
  auto many = std::dynamic_pointer_cast<View>(nib.objectWithIdentifier(u"many"));
  ASSERT_TRUE(many);
  EXPECT_EQ(many->frame(), (Rect{9, 8, 7, 6}));
  bool outlet = false;
  for (const NibConnection& c : nib.connections()) outlet |= c.label == String(u"helper") && c.destinationIdentifier == String(u"tb1");
  EXPECT_TRUE(outlet) << "the connections after twenty other children";
  for (std::size_t i = 0; i < texts.size(); ++i) {
    auto item = std::dynamic_pointer_cast<MenuItem>(nib.objectWithIdentifier(String::fromUTF8("s" + std::to_string(i))));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->title(), String::fromUTF8(texts[i])) << "length " << texts[i].size();
  }
}

// --- the shared corpus -----------------------------------------------------------------------------

// Every view below `view` of class T, depth first, through every tab of a tab view.
template <class T>
void collect(const std::shared_ptr<View>& view, std::vector<std::shared_ptr<T>>& out) {
  if (!view) return;
  if (auto t = std::dynamic_pointer_cast<T>(view)) out.push_back(t);
  if (auto tabs = std::dynamic_pointer_cast<TabView>(view)) {
    for (const auto& item : tabs->tabViewItems()) collect(item->view(), out);
    return;
  }
  for (const auto& sub : view->subviews()) collect(sub, out);
}

template <class T>
std::vector<std::shared_ptr<T>> allIn(const Nib& nib) {
  std::vector<std::shared_ptr<T>> out;
  for (const auto& object : nib.topLevelObjects()) {
    if (auto w = std::dynamic_pointer_cast<Window>(object)) collect(w->contentView(), out);
    if (auto v = std::dynamic_pointer_cast<View>(object)) collect(v, out);
  }
  return out;
}

TEST(NibReaderCorpus, EveryDocumentLoadsWithoutWarnings) {
  TQ_SKIP_WITHOUT_CORPUS();
  int count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(test::corpusDir())) {
    if (entry.path().extension() != ".xib") continue;
    ++count;
    NibReadResult r = readNibFile(entry.path().string());
    ASSERT_TRUE(r) << entry.path() << ": " << r.error().reason;
    EXPECT_FALSE(r.nib().topLevelObjects().empty()) << entry.path();
    for (const auto& w : r.nib().warnings()) ADD_FAILURE() << entry.path() << ": " << w;
  }
  EXPECT_GE(count, 11);
}

// What the corpus files say that neither their strings nor the synthetic documents above show,
// each read from the file by eye.
TEST(NibReaderCorpus, StructureOfKnownFiles) {
  TQ_SKIP_WITHOUT_CORPUS();
  auto read = [](const char* relative) {
    NibReadResult r = readNibFile((test::corpusDir() / relative).string());
    EXPECT_TRUE(r) << relative << ": " << r.error().reason;
    return r;
  };
  NibReadResult main = read("handbrake/macosx/Base.lproj/MainWindow.xib");
  ASSERT_TRUE(main);
  auto tabs = allIn<TabView>(main.nib());
  ASSERT_EQ(tabs.size(), 1u);
  std::vector<String> labels;
  for (const auto& item : tabs[0]->tabViewItems()) {
    labels.push_back(item->label());
    EXPECT_TRUE(item->view()) << item->label().UTF8String();
  }
  EXPECT_EQ(labels, (std::vector<String>{u"Summary", u"Dimensions", u"Filters", u"Video", u"Audio", u"Subtitles", u"Chapters"}));
  // The box whose title is stored but not shown.
  bool hiddenTitle = false;
  for (const auto& box : allIn<Box>(main.nib())) hiddenTitle |= box->title() == String(u"Box") && box->titlePosition() == TitlePosition::NoTitle;
  EXPECT_TRUE(hiddenTitle);

  NibReadResult picture = read("handbrake/macosx/Base.lproj/PictureSettings.xib");
  ASSERT_TRUE(picture);
  auto matrices = allIn<Matrix>(picture.nib());
  ASSERT_EQ(matrices.size(), 1u);
  EXPECT_EQ(matrices[0]->cellSize(), (Size{190, 20}));
  ASSERT_TRUE(matrices[0]->prototype());
  EXPECT_TRUE(matrices[0]->binderForBinding(u"selectedIndex"));

  NibReadResult titles = read("handbrake/macosx/Base.lproj/HBTitleSelection.xib");
  ASSERT_TRUE(titles);
  auto tables = allIn<TableView>(titles.nib());
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_TRUE(tables[0]->isViewBased());
  EXPECT_EQ(tables[0]->headerView()->className(), String(u"NSTableHeaderView"));
  auto check = std::dynamic_pointer_cast<ButtonCell>(tables[0]->tableColumns().at(1)->dataCell());
  ASSERT_TRUE(check);
  EXPECT_EQ(check->buttonType(), NSSwitchButton);
  bool returnKey = false;
  for (const auto& b : allIn<Button>(titles.nib())) returnKey |= b->title() == String(u"Add") && b->buttonCell()->keyEquivalent() == String(u"\r");
  EXPECT_TRUE(returnKey) << "keyEquivalent is base64 UTF-8";

  // Subtitle columns: three pop-up data cells (one archived with an empty menu) holding two items.
  NibReadResult subtitles = read("handbrake/macosx/Base.lproj/Subtitles.xib");
  ASSERT_TRUE(subtitles);
  int withMenu = 0, items = 0;
  for (const auto& table : allIn<TableView>(subtitles.nib())) {
    for (const auto& column : table->tableColumns()) {
      auto* m = dynamic_cast<HasMenu*>(column->dataCell().get());
      if (!m) continue;
      ASSERT_TRUE(m->menu());
      items += static_cast<int>(m->menu()->numberOfItems());
      ++withMenu;
    }
  }
  EXPECT_EQ(withMenu, 3);
  EXPECT_EQ(items, 2);
  NibReadResult activity = read("transmission/macosx/Base.lproj/InfoActivityView.xib");
  ASSERT_TRUE(activity);
  int notAvailable = 0;
  for (const auto& f : allIn<TextField>(activity.nib())) notAvailable += f->placeholderString() == String(u"N/A");
  EXPECT_EQ(notAvailable, 12) << "every field keeps its own placeholder";
}

}  // namespace
}  // namespace tq
