// The interface document reader on the fixtures of tests/data/archive (the current document and the
// older XML archive, one case per top-level object): structure, connections, custom classes,
// bindings, numbers and texts as written, malformed input of every text form; and facts of the
// corpus files beyond their strings (those are compared by nib_forms_corpus_test).
#include <glib.h>
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include <cmath>

#include "remembered_casts.h"
#include "support/test_paths.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/class_registry.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/rule_editor.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/stack_view.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/window.h"

namespace tq {
namespace {

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

NibReadResult readFixture(const char* name, const std::shared_ptr<Object>& owner = nullptr, ClassRegistry* registry = nullptr) {
  NibLoadOptions options;
  options.owner = owner;
  options.registry = registry;
  return readNibFile((test::dataDir() / "archive" / name).string(), options);
}

template <class T>
std::shared_ptr<T> get(const Nib& nib, const char* id) {
  auto o = std::dynamic_pointer_cast<T>(nib.objectWithIdentifier(String::fromUTF8(id)));
  EXPECT_TRUE(o) << id;
  return o;
}

// A document of its own: the owner, then `objects`.
std::string document(const std::string& objects) {
  return R"(<?xml version="1.0"?><document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<customObject id="-2" userLabel="File's Owner" customClass="Controller"/>)" + objects + "</objects></document>";
}

TEST(NibReader, BuildsTheDocumentsObjectsAndConnectsThemToTheOwner) {
  auto owner = std::make_shared<Owner>();
  NibReadResult r = readFixture("Document.xib", owner);
  ASSERT_TRUE(r) << r.error().reason;
  const Nib& nib = r.nib();
  // Top-level objects in document order, without the placeholders; an identifier given twice
  // belongs to the later object.
  std::vector<std::string> top;
  for (const auto& o : nib.topLevelObjects()) top.push_back(std::dynamic_pointer_cast<InterfaceObject>(o)->archiveIdentifier().UTF8String());
  EXPECT_EQ(top, (std::vector<std::string>{"w1", "m2", "ctl", "insp", "pal", "stp", "pi", "ac", "cv", "bt", "fb", "dup", "dup", "w2", "rules"}));
  EXPECT_EQ(nib.objectWithIdentifier(u"-2"), owner);
  EXPECT_EQ(owner->awakened, 1);
  // Warned about: the outlet to an unknown object, a date as a placeholder.
  std::string warnings;
  for (const auto& w : nib.warnings()) warnings += w + "\n";
  EXPECT_EQ(nib.warnings().size(), 2u) << warnings;
  EXPECT_NE(warnings.find("nowhere"), std::string::npos) << warnings;
  EXPECT_NE(warnings.find("NSNullPlaceholder"), std::string::npos) << warnings;

  auto window = get<Window>(nib, "w1");
  ASSERT_TRUE(window);
  EXPECT_EQ(window->contentRect(), (Rect{196, 240, 400, 300}));
  EXPECT_EQ(window->styleMask(), NSWindowStyleMaskTitled | NSWindowStyleMaskClosable);
  EXPECT_FALSE(window->isReleasedWhenClosed());
  ASSERT_EQ(window->contentView()->subviews().size(), 3u);
  auto check = get<Button>(nib, "b1");
  ASSERT_TRUE(check);
  EXPECT_EQ(check->frame(), (Rect{18, 20, 120, 18}));
  EXPECT_EQ(check->buttonCell()->buttonType(), NSSwitchButton);
  EXPECT_EQ(check->imagePosition(), CellImagePosition::ImageLeft);
  EXPECT_EQ(check->state(), 1);
  EXPECT_EQ(check->window(), window.get());
  auto field = get<TextField>(nib, "t1");
  ASSERT_TRUE(field);
  EXPECT_EQ(field->customClassName(), String(u"FancyField")) << "unregistered: the base class stands in";
  EXPECT_EQ(field->className(), String(u"NSTextField"));
  auto cell = field->textFieldCell();
  EXPECT_EQ(cell->font().size, 11);
  EXPECT_EQ(cell->lineBreakMode(), NSLineBreakByTruncatingTail);
  EXPECT_TRUE(cell->drawsBackground());
  ASSERT_TRUE(cell->backgroundColor());
  EXPECT_EQ(cell->backgroundColor()->name, String(u"textBackgroundColor"));
  auto popUp = get<PopUpButton>(nib, "p1");
  ASSERT_TRUE(popUp);
  ASSERT_EQ(popUp->itemArray().size(), 3u);
  EXPECT_EQ(popUp->indexOfSelectedItem(), 1);
  EXPECT_TRUE(popUp->itemArray()[2]->isSeparatorItem());

  auto menu = get<Menu>(nib, "m2");
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
  // An option of a kind a placeholder cannot be is left out; the others stay.
  auto dated = get<TextField>(nib, "bt")->binderForBinding(u"value")->bindingInfos()[0];
  EXPECT_TRUE(dated->placeholderForMarker(NSNullMarker).isNil());
  EXPECT_TRUE(dated->options().objectForKey(u"NSValidatesImmediately").boolValue());

  // Outlets and actions reach the owner.
  EXPECT_EQ(owner->outlet(u"window"), window);
  EXPECT_EQ(owner->actions, (decltype(owner->actions){{u"toggle:", check}}));
  EXPECT_EQ(check->target(), owner);
  EXPECT_EQ(check->action(), String(u"toggle:"));
  // Without an owner nothing points at one, bindings observe nothing, the owner's outlets are not
  // looked at (only the date is warned about).
  NibReadResult bare = readFixture("Document.xib");
  ASSERT_TRUE(bare);
  EXPECT_TRUE(get<Button>(bare.nib(), "b1")->action().isNil());
  EXPECT_EQ(get<TextField>(bare.nib(), "bt")->binderForBinding(u"value")->bindingInfos()[0]->observedObject(), nullptr);
  EXPECT_EQ(bare.nib().warnings().size(), 1u);
}

// Classes the model has none of its own for fall back to the nearest base; custom classes come from
// the registry, an unfit one falling back too; an element may carry any number of attributes.
TEST(NibReader, ClassesCustomClassesAndAttributes) {
  ClassRegistry registry;
  registry.registerClass<FancyCell>(u"FancyCell");
  registry.registerClass<Menu>(u"FancyField");  // not a view: the base class must stand in
  NibReadResult r = readFixture("Document.xib", nullptr, &registry);
  ASSERT_TRUE(r);
  const Nib& nib = r.nib();
  auto field = get<TextField>(nib, "t1");
  ASSERT_TRUE(field);
  EXPECT_EQ(field->customClassName(), String(u"FancyField"));
  auto cell = std::dynamic_pointer_cast<FancyCell>(field->cell());
  ASSERT_TRUE(cell) << field->cell()->className().UTF8String();
  EXPECT_TRUE(cell->customClassName().isNil());
  EXPECT_EQ(cell->awokeWithPlaceholder, String(u"Your name")) << "awakeFromNib after decoding";

  EXPECT_EQ(get<Panel>(nib, "insp")->className(), String(u"NSPanel"));
  EXPECT_TRUE(get<Panel>(nib, "pal"));
  auto stepper = get<Control>(nib, "stp");
  EXPECT_EQ(stepper->className(), String(u"NSStepper"));
  EXPECT_EQ(stepper->cell()->className(), String(u"NSStepperCell"));
  EXPECT_TRUE(stepper->cell()->isKindOfClass<ActionCell>());
  EXPECT_EQ(get<View>(nib, "pi")->className(), String(u"NSProgressIndicator"));
  auto controller = get<GenericObject>(nib, "ac");
  EXPECT_EQ(controller->className(), String(u"NSArrayController"));
  EXPECT_EQ(controller->attributes().objectForKey(u"objectClassName").stringValue(), String(u"Thing"));
  auto helper = get<GenericObject>(nib, "ctl");
  EXPECT_EQ(helper->className(), String(u"NSObject"));
  EXPECT_EQ(helper->customClassName(), String(u"HelperController"));

  auto button = get<Button>(nib, "fb");
  EXPECT_EQ(button->title(), String(u"Last")) << "an attribute after 45 others";
  EXPECT_EQ(button->buttonCell()->bezelStyle(), String(u"rounded"));
  EXPECT_EQ(button->state(), 1);
  auto second = get<GenericObject>(nib, "dup");
  EXPECT_EQ(second->customClassName(), String(u"Second"));
  EXPECT_EQ(second->attributes().objectForKey(u"tail").stringValue(), String(u"end")) << "packed past the gathered attributes";
  EXPECT_EQ(second->attributes().objectForKey(u"x44").stringValue(), String(u"44"));
  EXPECT_EQ(second->attributes().count(), 48u) << "id, customClass, 45 fillers and tail";
  auto binding = button->binderForBinding(u"enabled")->bindingInfos()[0];
  EXPECT_EQ(binding->observedObject(), second) << "the binding reaches the later object";
  EXPECT_FALSE(binding->options().isNil());
  EXPECT_EQ(binding->options().count(), 0u);
}

TEST(NibReader, GridsTabsTablesToolbarsStacksAndRuleEditors) {
  NibReadResult r = readFixture("Document.xib");
  ASSERT_TRUE(r) << r.error().reason;
  const Nib& nib = r.nib();
  auto matrix = get<Matrix>(nib, "mtx");
  std::vector<String> order;
  for (const auto& c : matrix->cells()) order.push_back(c->title());
  EXPECT_EQ(order, (std::vector<String>{u"A", u"C", u"B", u"D"})) << "archived by column, kept by row";
  EXPECT_EQ(std::dynamic_pointer_cast<ButtonCell>(matrix->cells()[0])->buttonType(), NSRadioButton);
  auto tabs = get<TabView>(nib, "tv");
  EXPECT_EQ(tabs->indexOfSelectedTabViewItem(), 1);
  EXPECT_EQ(tabs->subviews().at(0), nib.objectWithIdentifier(u"tv2"));
  auto scroll = get<ScrollView>(nib, "sv");
  auto outline = get<OutlineView>(nib, "ov");
  EXPECT_EQ(scroll->documentView(), outline);
  EXPECT_EQ(scroll->verticalScroller()->className(), String(u"NSScroller"));
  EXPECT_EQ(scroll->headerView(), nib.objectWithIdentifier(u"hv"));
  EXPECT_EQ(outline->headerView(), scroll->headerView());
  ASSERT_EQ(outline->numberOfColumns(), 2);
  EXPECT_EQ(outline->outlineTableColumn(), outline->tableColumns()[1]);
  EXPECT_TRUE(outline->tableColumns()[1]->isHidden());
  EXPECT_EQ(outline->tableColumns()[0]->width(), 50);

  auto toolbar = std::dynamic_pointer_cast<Toolbar>(get<Window>(nib, "w2")->toolbar());
  ASSERT_TRUE(toolbar);
  EXPECT_EQ(toolbar->identifier(), String(u"T-1"));
  EXPECT_EQ(toolbar->displayMode(), Toolbar::DisplayMode::IconAndLabel);
  ASSERT_EQ(toolbar->allowedItems().size(), 3u);
  auto pause = toolbar->itemWithIdentifier(u"I-1"), filter = toolbar->itemWithIdentifier(u"I-2");
  ASSERT_TRUE(pause && filter);
  // The action is sent to First Responder.
  EXPECT_EQ((std::vector<String>{pause->label(), pause->paletteLabel(), pause->toolTip(), filter->toolTip(), pause->imageName(), pause->action()}),
            (std::vector<String>{u"Pause All", u"Pause All Transfers", u"Pause every transfer", u"Show only matching transfers", u"Pause", u"pauseAll:"}));
  EXPECT_EQ(std::dynamic_pointer_cast<PopUpButton>(filter->view())->menu()->itemAtIndex(1)->title(), String(u"Active"));
  ASSERT_EQ(toolbar->defaultItems().size(), 3u);
  EXPECT_EQ(toolbar->defaultItems()[0], filter);
  EXPECT_EQ(toolbar->defaultItems()[1]->itemIdentifier(), String(u"NSToolbarFlexibleSpaceItem"));
  EXPECT_EQ(toolbar->defaultItems()[2], pause);

  // Stack views: the vertical one lists its trailing area before the centre one; subviews follow
  // the areas. Both spellings of the areas are read.
  const auto titles = [](const StackView& stack) {
    std::vector<std::pair<std::u16string, StackViewGravity>> out;
    for (const auto& v : stack.subviews())
      out.emplace_back(std::dynamic_pointer_cast<Control>(v)->cell()->title().u16string(), stack.gravityOf(v.get()));
    return out;
  };
  auto vertical = get<StackView>(nib, "s1");
  EXPECT_EQ(vertical->orientation(), UserInterfaceLayoutOrientation::Vertical);
  EXPECT_EQ(vertical->spacing(), 6);
  using G = StackViewGravity;
  EXPECT_EQ(titles(*vertical), (std::vector<std::pair<std::u16string, G>>{{u"First", G::Leading}, {u"Second", G::Center}, {u"Third", G::Trailing}}));
  EXPECT_EQ(titles(*get<StackView>(nib, "hsv")),
            (std::vector<std::pair<std::u16string, G>>{{u"Left", G::Leading}, {u"Middle", G::Center}, {u"Right", G::Trailing}}));

  auto editor = get<RuleEditor>(nib, "pe");
  ASSERT_EQ(editor->rowTemplates().size(), 1u);
  const auto& views = editor->rowTemplates()[0]->templateViews();
  ASSERT_EQ(views.size(), 2u);
  auto first = std::dynamic_pointer_cast<PopUpButton>(views[0]);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->itemArray().at(1)->title(), String(u"All"));
  EXPECT_EQ(first->title(), String(u"Any")) << "a template's pop-up shows its first item";
}

// Custom classes, object identifiers and launch visibility come from the flattened properties; the
// action's target is the record's source; a reference resolves to the one shared object; a plug-in
// class reads as the class its descriptions lead to.
TEST(NibReader, OlderXMLArchivesResolveReferencesRecordsAndClassDescriptions) {
  auto owner = std::make_shared<GenericObject>();
  NibReadResult r = readFixture("Archive.xib", owner);
  ASSERT_TRUE(r) << r.error().reason;
  const auto& top = r.nib().topLevelObjects();
  ASSERT_EQ(top.size(), 5u) << "owner, First Responder and Application are placeholders";
  auto view = std::dynamic_pointer_cast<View>(top[0]);
  ASSERT_TRUE(view);
  auto button = std::dynamic_pointer_cast<Button>(view->subviews().at(0));
  ASSERT_TRUE(button);
  EXPECT_EQ(button->customClassName(), String(u"FancyButton"));
  EXPECT_EQ(button->archiveIdentifier(), String(u"42"));
  EXPECT_EQ(button->buttonCell()->buttonType(), ButtonType::Switch);
  EXPECT_EQ(button->action(), String(u"toggle:"));
  EXPECT_EQ(button->target(), owner);
  EXPECT_EQ(std::dynamic_pointer_cast<Control>(view->subviews().at(1))->cell(), top[1]);
  auto shown = std::dynamic_pointer_cast<Window>(top[2]), hidden = std::dynamic_pointer_cast<Window>(top[3]);
  ASSERT_TRUE(shown && hidden);
  EXPECT_TRUE(shown->isVisibleAtLaunch());
  EXPECT_FALSE(hidden->isVisibleAtLaunch());
  auto plugIn = std::dynamic_pointer_cast<PopUpButton>(top[4]);
  ASSERT_TRUE(plugIn);
  EXPECT_EQ(plugIn->customClassName(), String(u"PlugInPopUp"));
  ASSERT_EQ(plugIn->itemArray().size(), 2u);
  EXPECT_EQ(plugIn->itemArray()[0]->title(), String(u"Unlimited"));
}

// Every text form refuses what is not an interface with one clear reason, and hands out nothing.
TEST(NibReader, DocumentsThatDoNotParseGiveOneClearReason) {
  std::string deep;
  for (int i = 0; i < 300; ++i) deep = "<view><subviews>" + deep + "</subviews></view>";
  const std::string archive = R"(<archive type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="7.02"><data>
<object class="NSMutableArray" key="IBDocument.RootObjects" id="1000"><object class="NSCustomObject" id="1"/>)";
  const std::string storyboard = R"(<document type="com.apple.InterfaceBuilder3.Cocoa.Storyboard.XIB"><scenes><scene sceneID="s"><objects>)";
  const std::string storyboardEnd = "</objects></scene></scenes></document>";
  const struct {
    std::string bytes;
    const char* reasonPart;
    bool asStoryboard = false;
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
      {archive + R"(<object class="NSView" id="10"><reference key="NSNextResponder" ref="77"/></object></object></data></archive>)", "id 77"},
      {archive + R"(<object class="NSView" id="10"><object class="NSMutableArray" key="NSSubviews"><reference ref="10"/></object></object></object></data></archive>)",
       "contains itself"},
      {storyboard + R"(<viewController id="a"><view key="view" id="b"></objects>)" + storyboardEnd, "not well-formed XML at offset", true},
      {storyboard + R"(<viewController id="a"><view key="view"><subviews>)" + deep + "</subviews></view></viewController>" + storyboardEnd,
       "nested too deeply", true},
      {R"(<document type="com.apple.InterfaceBuilder3.Cocoa.XIB"><objects/></document>)", "no scenes element", true},
      {R"(<plist/>)", "not a storyboard", true},
      {R"(<document type="com.apple.InterfaceBuilder3.CocoaTouch.Storyboard.XIB"><scenes/></document>)", "not a Cocoa", true},
  };
  for (const auto& c : cases) {
    // Refused with the reason, and the result hands out nothing.
    const auto expectRefused = [&](const auto& r, const auto& open) {
      ASSERT_FALSE(r) << c.bytes.substr(0, 120);
      EXPECT_NE(r.error().reason.find(c.reasonPart), std::string::npos) << r.error().reason;
      EXPECT_THROW(open(r), Exception);
    };
    if (c.asStoryboard) expectRefused(readStoryboardData(c.bytes), [](const auto& r) { (void)r.storyboard(); });
    if (!c.asStoryboard) expectRefused(readNibData(c.bytes), [](const auto& r) { (void)r.nib(); });
  }
  NibReadResult broken = readNibData("<document><objects><window id=\"x\"></objects></document>");
  ASSERT_FALSE(broken);
  EXPECT_GT(broken.error().offset, 0);
  NibReadResult missing = readNibFile("/nonexistent/Main.xib");
  ASSERT_FALSE(missing);
  EXPECT_NE(missing.error().reason.find("/nonexistent/Main.xib"), std::string::npos);
  StoryboardReadResult missingStoryboard = readStoryboardFile("/nonexistent/Main.storyboard");
  ASSERT_FALSE(missingStoryboard);
  EXPECT_EQ(missingStoryboard.error().reason.rfind("/nonexistent/Main.storyboard: ", 0), 0u) << missingStoryboard.error().reason;
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

// Base64 as written in documents (GLib's encoder), white space put in by the test.
std::string base64(const std::string& bytes) {
  gchar* text = g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
  std::string out(text);
  g_free(text);
  return out;
}

// The fixture Written.xib: two buttons of the class above, the second set up from what the first
// taught the reader; a view whose frame and connections come after twenty other children.
TEST(NibReader, ClassesAndLateChildrenAsWritten) {
  ClassRegistry registry;
  registry.registerClass<TalliedButton>(u"TalliedButton");
  auto owner = std::make_shared<Owner>();
  NibReadResult r = readFixture("Written.xib", owner, &registry);
  ASSERT_TRUE(r) << r.error().reason;
  const Nib& nib = r.nib();
  for (const char* id : {"tb1", "tb2"}) {
    auto button = get<TalliedButton>(nib, id);
    ASSERT_TRUE(button);
    EXPECT_EQ(button->count, 7);
    EXPECT_EQ(button->frame(), (Rect{3, 4, 5, 6}));
    ASSERT_TRUE(button->cell()) << id;
    EXPECT_EQ(button->cell()->title(), String::fromUTF8(id));
    EXPECT_EQ(button->action(), String(u"press:"));
    EXPECT_EQ(button->target(), owner);
  }
  ASSERT_EQ(owner->actions.size(), 2u);
  EXPECT_EQ(owner->actions[1].second, nib.objectWithIdentifier(u"tb2"));
  EXPECT_EQ(get<View>(nib, "many")->frame(), (Rect{9, 8, 7, 6}));
  bool outlet = false;
  for (const NibConnection& c : nib.connections()) outlet |= c.label == String(u"helper") && c.destinationIdentifier == String(u"tb1");
  EXPECT_TRUE(outlet) << "the connections after twenty other children";
}

// A view's constraints in document order, each the generic object it is whether it has children or
// not: every attribute as the document's bytes hold it (read here by the XML parser itself), its
// identifier, label and custom class, and reachable by identifier from the table and from an outlet.
TEST(NibReader, ConstraintsKeepTheirAttributesLabelsAndIdentifiers) {
  const std::string xml = R"(<?xml version="1.0"?><document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<customObject id="-2" userLabel="File's Owner"><connections><outlet property="gap" destination="c2" id="o1"/><action selector="go:" target="c1"/></connections></customObject>
<customView id="v"><constraints>
<constraint firstAttribute="width" constant="20" id="c1"/>
<constraint firstItem="v" firstAttribute="top" userLabel="Top Gap" constant="8" id="c2"/>
<constraint firstAttribute="height" customClass="MyConstraint" id="c3"/>
<constraint firstAttribute="leading" id="c4"><variation key="heightClass=compact"/></constraint>
<constraint identifier="caf&#233; &amp; more" constant="-1.5"/>
</constraints></customView></objects></document>)";
  pugi::xml_document doc;
  ASSERT_TRUE(doc.load_string(xml.c_str()));
  NibLoadOptions options;
  auto owner = std::make_shared<GenericObject>();
  options.owner = owner;
  NibReadResult r = readNibData(xml, options);
  ASSERT_TRUE(r) << r.error().reason;
  const auto& constraints = get<View>(r.nib(), "v")->constraints();
  ASSERT_EQ(constraints.size(), 5u);
  std::size_t at = 0;
  for (pugi::xml_node c : doc.child("document").child("objects").child("customView").child("constraints").children()) {
    auto object = std::dynamic_pointer_cast<GenericObject>(constraints[at++]);
    ASSERT_TRUE(object);
    EXPECT_EQ(object->className(), String(u"NSLayoutConstraint"));
    const char* id = c.attribute("id").value();
    EXPECT_EQ(object->archiveIdentifier(), *id ? String::fromUTF8(id) : String());
    if (*id) {
      EXPECT_EQ(r.nib().objectWithIdentifier(String::fromUTF8(id)), object);
    }
    std::vector<std::pair<std::string, std::string>> written, kept;
    for (pugi::xml_attribute a : c.attributes()) written.emplace_back(a.name(), a.value());
    for (const auto& [name, value] : object->attributes().entries()) kept.emplace_back(name.UTF8String(), value.stringValue().UTF8String());
    EXPECT_EQ(kept, written) << at;
  }
  EXPECT_EQ(constraints[1]->userLabel(), String(u"Top Gap"));
  EXPECT_TRUE(constraints[0]->userLabel().isNil());
  EXPECT_EQ(constraints[2]->customClassName(), String(u"MyConstraint"));
  EXPECT_EQ(owner->outlet(u"gap"), constraints[1]);
  const auto& connections = r.nib().connections();
  ASSERT_EQ(connections.size(), 2u);
  EXPECT_EQ(connections[0].kind, NibConnection::Kind::Outlet);
  EXPECT_EQ(connections[0].identifier, String(u"o1"));
  EXPECT_EQ(connections[0].destinationIdentifier, String(u"c2"));
  EXPECT_EQ(connections[1].kind, NibConnection::Kind::Action);
  EXPECT_EQ(connections[1].label, String(u"go:"));
  EXPECT_EQ(connections[1].destination.lock(), constraints[0]);
  EXPECT_TRUE(connections[1].identifier.isNil());

  // The attributes every object is asked about, past three dozen others.
  std::string late = "<customView";
  for (int i = 0; i < 36; ++i) late += " x" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
  late += " userLabel=\"Late\" customClass=\"LateView\" id=\"late\"/>";
  NibReadResult lateRead = readNibData(document(late));
  ASSERT_TRUE(lateRead) << lateRead.error().reason;
  auto view = get<View>(lateRead.nib(), "late");
  ASSERT_TRUE(view);
  EXPECT_EQ(view->userLabel(), String(u"Late"));
  EXPECT_EQ(view->customClassName(), String(u"LateView"));
}

// The readers' remembered casts give what dynamic_cast gives, read after read (the model's classes
// are remembered across reads, a host's for one read), also for a base away from the object's start.
TEST(RememberedCasts, GiveWhatDynamicCastGivesReadAfterRead) {
  class HostButton : public Button {};
  const std::vector<std::shared_ptr<InterfaceObject>> objects = {
      std::make_shared<Button>(), std::make_shared<TextField>(), std::make_shared<HostButton>(),
      std::make_shared<GenericObject>(), std::make_shared<Owner>(), std::make_shared<ButtonCell>()};
  for (int read = 0; read < 3; ++read) {
    RememberedCasts casts;
    for (int pass = 0; pass < 2; ++pass) {
      for (const auto& o : objects) {
        InterfaceObject* p = o.get();
        EXPECT_EQ(casts.as<Control>(p), dynamic_cast<Control*>(p));
        EXPECT_EQ(casts.as<Cell>(p), dynamic_cast<Cell*>(p));
        EXPECT_EQ(casts.as<Button>(p), dynamic_cast<Button*>(p));
        EXPECT_EQ(casts.as<NibConnectable>(p), dynamic_cast<NibConnectable*>(p));
      }
    }
  }
}

TEST(NibReader, NumbersAndTextsAsWritten) {
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
  objects += "</subviews></customView><menu title=\"T\" id=\"texts\"><items>";
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::string encoded = base64(texts[i]);
    for (std::size_t at = i % 5; at < encoded.size(); at += 3 + i % 4) encoded.insert(at, i % 2 ? "\n " : " ");
    objects += "<menuItem id=\"s" + std::to_string(i) + "\"><string key=\"title\" base64-UTF8=\"YES\">" + encoded + "</string></menuItem>";
  }
  objects += "</items></menu>";

  NibReadResult r = readNibData(document(objects));
  ASSERT_TRUE(r) << r.error().reason;
  const Nib& nib = r.nib();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    auto view = get<View>(nib, ("n" + std::to_string(i)).c_str());
    ASSERT_TRUE(view);
    char* end = nullptr;
    const double parsed = std::strtod(numbers[i].c_str(), &end);
    const double expected = end == numbers[i].c_str() ? 0 : parsed;
    EXPECT_EQ(view->frame().x, expected) << "x=\"" << numbers[i] << "\"";
    EXPECT_EQ(std::signbit(view->frame().x), std::signbit(expected)) << "x=\"" << numbers[i] << "\"";
  }
  for (std::size_t i = 0; i < texts.size(); ++i) {
    auto item = get<MenuItem>(nib, ("s" + std::to_string(i)).c_str());
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
std::vector<std::shared_ptr<T>> allIn(const NibReadResult& r) {
  std::vector<std::shared_ptr<T>> out;
  for (const auto& object : r ? r.nib().topLevelObjects() : std::vector<std::shared_ptr<Object>>{}) {
    if (auto w = std::dynamic_pointer_cast<Window>(object)) collect(w->contentView(), out);
    if (auto v = std::dynamic_pointer_cast<View>(object)) collect(v, out);
  }
  return out;
}

NibReadResult readCorpus(const char* relative) {
  NibReadResult r = readNibFile((test::corpusDir() / relative).string());
  EXPECT_TRUE(r) << relative << ": " << r.error().reason;
  return r;
}

// What the corpus files say that neither their strings nor the fixtures above show, each read from
// the file by eye.
TEST(NibReaderCorpus, StructureOfKnownFiles) {
  TQ_SKIP_WITHOUT_CORPUS();
  const NibReadResult main = readCorpus("handbrake/macosx/Base.lproj/MainWindow.xib");
  const NibReadResult picture = readCorpus("handbrake/macosx/Base.lproj/PictureSettings.xib");
  const NibReadResult titles = readCorpus("handbrake/macosx/Base.lproj/HBTitleSelection.xib");
  const NibReadResult subtitles = readCorpus("handbrake/macosx/Base.lproj/Subtitles.xib");
  const NibReadResult activity = readCorpus("transmission/macosx/Base.lproj/InfoActivityView.xib");
  auto tabs = allIn<TabView>(main);
  ASSERT_EQ(tabs.size(), 1u);
  std::vector<String> labels;
  for (const auto& item : tabs[0]->tabViewItems()) {
    labels.push_back(item->label());
    EXPECT_TRUE(item->view()) << item->label().UTF8String();
  }
  EXPECT_EQ(labels, (std::vector<String>{u"Summary", u"Dimensions", u"Filters", u"Video", u"Audio", u"Subtitles", u"Chapters"}));
  // The box whose title is stored but not shown.
  bool hiddenTitle = false;
  for (const auto& box : allIn<Box>(main))
    hiddenTitle |= box->title() == String(u"Box") && box->titlePosition() == TitlePosition::NoTitle;
  EXPECT_TRUE(hiddenTitle);

  auto matrices = allIn<Matrix>(picture);
  ASSERT_EQ(matrices.size(), 1u);
  EXPECT_EQ(matrices[0]->cellSize(), (Size{190, 20}));
  ASSERT_TRUE(matrices[0]->prototype());
  EXPECT_TRUE(matrices[0]->binderForBinding(u"selectedIndex"));

  auto tables = allIn<TableView>(titles);
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_TRUE(tables[0]->isViewBased());
  EXPECT_EQ(tables[0]->headerView()->className(), String(u"NSTableHeaderView"));
  auto check = std::dynamic_pointer_cast<ButtonCell>(tables[0]->tableColumns().at(1)->dataCell());
  ASSERT_TRUE(check);
  EXPECT_EQ(check->buttonType(), NSSwitchButton);
  bool returnKey = false;
  for (const auto& b : allIn<Button>(titles))
    returnKey |= b->title() == String(u"Add") && b->buttonCell()->keyEquivalent() == String(u"\r");
  EXPECT_TRUE(returnKey) << "keyEquivalent is base64 UTF-8";

  // Subtitle columns: three pop-up data cells (one archived with an empty menu) holding two items.
  int withMenu = 0, items = 0;
  for (const auto& table : allIn<TableView>(subtitles)) {
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
  int notAvailable = 0;
  for (const auto& f : allIn<TextField>(activity)) notAvailable += f->placeholderString() == String(u"N/A");
  EXPECT_EQ(notAvailable, 12) << "every field keeps its own placeholder";
}

}  // namespace
}  // namespace tq
