// Every interface file of the corpus, in every form, loses none of the strings a user sees.
//
// The expected strings are taken from each file's own bytes without the reader: compiled keyed
// archives through libplist, NIBArchive files through the small table walker below, both XML forms
// and storyboards through pugixml, each by key and class. Each compiled keyed archive is also
// saved as an XML property list by libplist and read again. The loaded model is then walked through its public
// interface only, and every expected string must be found there.
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <pugixml.hpp>

#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <unordered_set>

#include "support/test_paths.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/model/bindings.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button_cell.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field_cell.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/window.h"

namespace tq {
namespace {

using Strings = std::multiset<std::string>;

std::string base64(std::string_view text) {
  std::string out;
  unsigned buffer = 0;
  int bits = 0;
  for (char ch : text) {
    const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const char* at = ch ? std::strchr(alphabet, ch) : nullptr;
    if (!at) continue;
    buffer = (buffer << 6) | static_cast<unsigned>(at - alphabet);
    bits += 6;
    if (bits >= 8) out.push_back(static_cast<char>((buffer >> (bits -= 8)) & 0xFF));
  }
  return out;
}

// Which keys of which classes hold text a user sees, in the archived forms.
bool visibleKey(const std::string& cls, const std::string& key) {
  static const std::set<std::string> anywhere = {"NSPlaceholderString",       "NSToolTip",
                                                 "NSHeaderToolTip",           "NSToolbarItemLabel",
                                                 "NSToolbarItemPaletteLabel", "NSToolbarItemToolTip",
                                                 "NSSegmentItemLabel",        "NSSegmentItemTooltip"};
  if (anywhere.count(key)) return true;
  const bool cell = cls.size() > 4 && cls.compare(cls.size() - 4, 4, "Cell") == 0;
  if (cell && (key == "NSContents" || key == "NSAlternateContents")) return true;
  if (key == "NSTitle" && (cls.rfind("NSMenu", 0) == 0)) return true;
  if (key == "NSWindowTitle" && cls == "NSWindowTemplate") return true;
  if (key == "NSLabel" && cls == "NSTabViewItem") return true;
  return false;
}

bool placeholderKey(const std::string& key) {
  return key == "NSNullPlaceholder" || key == "NSNoSelectionPlaceholder" || key == "NSMultipleValuesPlaceholder" ||
         key == "NSNotApplicablePlaceholder";
}

void add(Strings& out, const std::string& s) {
  if (!s.empty()) out.insert(s);
}

// --- compiled keyed archives, through libplist ---------------------------------------------------

struct PlistArchive {
  plist_t root = nullptr;
  plist_t objects = nullptr;
  ~PlistArchive() { plist_free(root); }
  // A reference: a UID, or in XML a dictionary holding only "CF$UID".
  static bool isUID(plist_t v) {
    return v && (plist_get_node_type(v) == PLIST_UID ||
                 (plist_get_node_type(v) == PLIST_DICT && plist_dict_get_size(v) == 1 && plist_dict_get_item(v, "CF$UID")));
  }
  plist_t at(plist_t uid) const {
    uint64_t i = 0;
    if (plist_get_node_type(uid) == PLIST_UID) {
      plist_get_uid_val(uid, &i);
    } else {
      plist_get_uint_val(plist_dict_get_item(uid, "CF$UID"), &i);
    }
    return plist_array_get_item(objects, static_cast<uint32_t>(i));
  }
  std::string className(plist_t dict) const {
    plist_t c = plist_dict_get_item(dict, "$class");
    if (!c) return {};
    plist_t name = plist_dict_get_item(at(c), "$classname");
    char* s = nullptr;
    plist_get_string_val(name, &s);
    std::string out = s ? s : "";
    free(s);
    return out;
  }
  // The text of a value: a string, or a string object (NS.string, NS.bytes, NSString).
  bool text(plist_t v, std::string& out, int hop = 0) const {
    if (!v || hop > 4) return false;
    if (isUID(v)) return text(at(v), out, hop + 1);
    if (plist_get_node_type(v) == PLIST_STRING) {
      char* s = nullptr;
      plist_get_string_val(v, &s);
      out = s ? s : "";
      free(s);
      return out != "$null";
    }
    if (plist_get_node_type(v) != PLIST_DICT || className(v).find("String") == std::string::npos) return false;
    for (const char* key : {"NS.string", "NSString", "NS.bytes"}) {
      if (plist_t inner = plist_dict_get_item(v, key)) return text(inner, out, hop + 1);
    }
    return false;
  }
  std::vector<plist_t> members(plist_t v, const char* key) const {
    std::vector<plist_t> out;
    if (!v) return out;
    if (isUID(v)) v = at(v);
    plist_t array = plist_dict_get_item(v, key);
    for (uint32_t i = 0; array && i < plist_array_get_size(array); ++i) out.push_back(plist_array_get_item(array, i));
    return out;
  }
};

Strings expectedFromKeyedArchive(const std::string& bytes, bool xml = false) {
  Strings out;
  PlistArchive a;
  if (xml) {
    plist_from_xml(bytes.data(), static_cast<uint32_t>(bytes.size()), &a.root);
  } else {
    plist_from_bin(bytes.data(), static_cast<uint32_t>(bytes.size()), &a.root);
  }
  EXPECT_NE(a.root, nullptr);
  if (!a.root) return out;
  a.objects = plist_dict_get_item(a.root, "$objects");
  // A search field's own search and cancel buttons show icons; their archived titles are not seen.
  std::set<plist_t> iconButtons;
  for (uint32_t i = 0; i < plist_array_get_size(a.objects); ++i) {
    plist_t o = plist_array_get_item(a.objects, i);
    if (plist_get_node_type(o) != PLIST_DICT) continue;
    for (const char* key : {"NSSearchButtonCell", "NSCancelButtonCell"}) {
      if (plist_t b = plist_dict_get_item(o, key)) iconButtons.insert(a.at(b));
    }
  }
  for (uint32_t i = 0; i < plist_array_get_size(a.objects); ++i) {
    plist_t o = plist_array_get_item(a.objects, i);
    if (plist_get_node_type(o) != PLIST_DICT || iconButtons.count(o)) continue;
    const std::string cls = a.className(o);
    if (cls.empty()) continue;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(o, &it);
    char* key = nullptr;
    plist_t value = nullptr;
    for (plist_dict_next_item(o, it, &key, &value); key; plist_dict_next_item(o, it, &key, &value)) {
      std::string text;
      if (visibleKey(cls, key) && a.text(value, text)) add(out, text);
      free(key);
      key = nullptr;
    }
    free(it);
    if (cls == "NSIBHelpConnector") {
      std::string file, marker;
      a.text(plist_dict_get_item(o, "NSFile"), file);
      if (file == "NSToolTipHelpKey" && a.text(plist_dict_get_item(o, "NSMarker"), marker)) add(out, marker);
    }
    if (cls == "NSNibBindingConnector") {
      plist_t options = plist_dict_get_item(o, "NSOptions");
      auto keys = a.members(options, "NS.keys"), values = a.members(options, "NS.objects");
      for (std::size_t k = 0; k < keys.size() && k < values.size(); ++k) {
        std::string name, text;
        if (a.text(keys[k], name) && placeholderKey(name) && a.text(values[k], text)) add(out, text);
      }
    }
  }
  return out;
}

// --- NIBArchive, through a table walker of its own -----------------------------------------------

struct NibTables {
  struct Value {
    std::string key;
    int type = 9;
    std::string bytes;
    uint32_t ref = 0;
  };
  struct Object {
    std::string cls;
    std::vector<Value> values;
  };
  std::vector<Object> objects;

  explicit NibTables(const std::string& b) {
    auto u32 = [&](std::size_t p) {
      uint32_t v = 0;
      std::memcpy(&v, b.data() + p, 4);
      return v;
    };
    std::size_t p = 0;
    auto varint = [&] {
      uint32_t v = 0;
      for (int shift = 0;; shift += 7) {
        const auto c = static_cast<unsigned char>(b.at(p++));
        v |= static_cast<uint32_t>(c & 0x7F) << shift;
        if (c & 0x80) return v;
      }
    };
    const uint32_t nObjects = u32(18), oObjects = u32(22), nKeys = u32(26), oKeys = u32(30), nValues = u32(34),
                   oValues = u32(38), nClasses = u32(42), oClasses = u32(46);
    std::vector<std::string> keys, classes;
    p = oKeys;
    for (uint32_t i = 0; i < nKeys; ++i) {
      const uint32_t n = varint();
      keys.push_back(b.substr(p, n));
      p += n;
    }
    p = oClasses;
    for (uint32_t i = 0; i < nClasses; ++i) {
      const uint32_t n = varint(), extras = varint();
      p += 4 * extras;
      classes.push_back(b.substr(p, n).c_str());
      p += n;
    }
    std::vector<Value> values;
    p = oValues;
    for (uint32_t i = 0; i < nValues; ++i) {
      Value v;
      v.key = keys.at(varint());
      v.type = static_cast<unsigned char>(b.at(p++));
      static const int sizes[] = {1, 2, 4, 8, 0, 0, 4, 8, -1, 0, 4};
      if (v.type == 8) {
        const uint32_t n = varint();
        v.bytes = b.substr(p, n);
        p += n;
      } else {
        if (v.type == 10) v.ref = u32(p);
        p += static_cast<std::size_t>(sizes[v.type]);
      }
      values.push_back(std::move(v));
    }
    p = oObjects;
    for (uint32_t i = 0; i < nObjects; ++i) {
      Object o;
      o.cls = classes.at(varint());
      const uint32_t first = varint(), count = varint();
      o.values.assign(values.begin() + first, values.begin() + first + count);
      objects.push_back(std::move(o));
    }
  }

  bool text(const Value& v, std::string& out) const {
    if (v.type != 10) return false;
    const Object& o = objects.at(v.ref);
    if (o.cls.find("String") == std::string::npos) return false;
    for (const Value& inner : o.values) {
      if (inner.key == "NS.bytes" && inner.type == 8) return out = inner.bytes, true;
      if (inner.key == "NSString" || inner.key == "NS.string") return text(inner, out);
    }
    return false;
  }
};

Strings expectedFromNIBArchive(const std::string& bytes) {
  Strings out;
  NibTables t(bytes);
  for (const auto& o : t.objects) {
    for (const auto& v : o.values) {
      std::string text;
      if (visibleKey(o.cls, v.key) && t.text(v, text)) add(out, text);
    }
    if (o.cls != "NSNibBindingConnector") continue;
    for (const auto& v : o.values) {
      if (v.key != "NSOptions" || v.type != 10) continue;
      const auto& dict = t.objects.at(v.ref).values;
      std::vector<const NibTables::Value*> members;
      for (const auto& m : dict) {
        if (m.key == "UINibEncoderEmptyKey") members.push_back(&m);
      }
      for (std::size_t k = 0; k + 1 < members.size(); k += 2) {
        std::string name, text;
        if (t.text(*members[k], name) && placeholderKey(name) && t.text(*members[k + 1], text)) add(out, text);
      }
    }
  }
  return out;
}

// --- the older XML archive, through pugixml ----------------------------------------------------------

Strings expectedFromXMLArchive(const pugi::xml_document& doc) {
  Strings out;
  std::map<std::string, pugi::xml_node> ids;
  for (pugi::xpath_node x : doc.select_nodes("//*[@id]")) ids[x.node().attribute("id").value()] = x.node();
  std::function<bool(pugi::xml_node, std::string&, int)> text = [&](pugi::xml_node n, std::string& s, int hop) {
    if (hop > 4) return false;
    if (std::strcmp(n.name(), "reference") == 0) {
      auto it = ids.find(n.attribute("ref").value());
      return it != ids.end() && text(it->second, s, hop + 1);
    }
    if (std::strcmp(n.name(), "string") == 0 || std::strcmp(n.name(), "characters") == 0) {
      s = std::strcmp(n.attribute("type").value(), "base64-UTF8") == 0 ? base64(n.child_value()) : n.child_value();
      return true;
    }
    if (std::strcmp(n.name(), "object") == 0 && std::strstr(n.attribute("class").value(), "String")) {
      for (const char* key : {"NS.bytes", "NSString", "NS.string"}) {
        if (pugi::xml_node inner = n.find_child_by_attribute("key", key)) return text(inner, s, hop + 1);
      }
    }
    return false;
  };
  for (pugi::xpath_node x : doc.select_nodes("//object[@class]")) {
    pugi::xml_node o = x.node();
    const std::string cls = o.attribute("class").value();
    for (pugi::xml_node c : o.children()) {
      std::string s;
      if (c.attribute("key") && visibleKey(cls, c.attribute("key").value()) && text(c, s, 0)) add(out, s);
    }
    if (cls == "NSNibBindingConnector") {
      pugi::xml_node options = o.find_child_by_attribute("key", "NSOptions");
      if (options && std::strcmp(options.name(), "reference") == 0) options = ids[options.attribute("ref").value()];
      std::vector<pugi::xml_node> keys, values;
      for (pugi::xml_node k : options.find_child_by_attribute("key", "dict.sortedKeys").children()) {
        if (!k.attribute("key")) keys.push_back(k);
      }
      for (pugi::xml_node v : options.find_child_by_attribute("key", "dict.values").children()) {
        if (!v.attribute("key")) values.push_back(v);
      }
      for (std::size_t k = 0; k < keys.size() && k < values.size(); ++k) {
        std::string name, s;
        if (text(keys[k], name, 0) && placeholderKey(name) && text(values[k], s, 0)) add(out, s);
      }
    }
  }
  return out;
}

// --- the current XML document, through pugixml --------------------------------------------------------

// The same archive as libplist writes it in XML.
std::string asXMLPropertyList(const std::string& binary) {
  plist_t root = nullptr;
  plist_from_bin(binary.data(), static_cast<uint32_t>(binary.size()), &root);
  char* xml = nullptr;
  uint32_t length = 0;
  plist_to_xml(root, &xml, &length);
  std::string out(xml ? xml : "", length);
  free(xml);
  plist_free(root);
  return out;
}

Strings expectedFromDocument(const pugi::xml_document& doc) {
  Strings out;
  static const std::set<std::string> keys = {"title",       "alternateTitle", "label",           "paletteLabel",
                                             "toolTip",     "placeholderString", "headerToolTip"};
  auto value = [](pugi::xml_node s) {
    return std::strcmp(s.attribute("base64-UTF8").value(), "YES") == 0 ? base64(s.child_value())
                                                                         : std::string(s.child_value());
  };
  for (pugi::xpath_node x : doc.select_nodes("/document/objects//* | /document/scenes//*")) {
    pugi::xml_node n = x.node();
    for (pugi::xml_node p = n; p; p = p.parent()) {
      if (std::strcmp(p.name(), "connections") == 0) goto next;
    }
    if (std::strcmp(n.name(), "string") == 0) {
      const std::string key = n.attribute("key").value();
      // A keyed string child stands for the parent's attribute; binding options hold placeholders.
      if (keys.count(key) || placeholderKey(key)) add(out, value(n));
      continue;
    }
    for (pugi::xml_attribute a : n.attributes()) {
      if (keys.count(a.name())) add(out, a.value());
    }
  next:;
  }
  // Binding placeholders live in <connections>.
  for (pugi::xpath_node x : doc.select_nodes("//binding/dictionary/string")) {
    if (placeholderKey(x.node().attribute("key").value())) add(out, value(x.node()));
  }
  return out;
}

// --- what the model holds ------------------------------------------------------------------------------

class ModelStrings {
 public:
  std::unordered_set<std::string> strings;

  void object(const Object* o) {
    if (!o || !seen_.insert(o).second) return;
    auto s = [&](const String& v) {
      if (!v.isNil() && v.length() > 0) strings.insert(v.UTF8String());
    };
    if (auto* io = dynamic_cast<const InterfaceObject*>(o)) {
      for (const auto& binder : io->binders()) {
        for (const auto& info : binder->bindingInfos()) {
          for (int m = 0; m < 4; ++m) {
            const Value& v = info->placeholderForMarker(static_cast<BindingMarker>(m));
            if (v.type() == Value::Type::String) s(v.stringValue());
          }
        }
      }
    }
    if (auto* w = dynamic_cast<const Window*>(o)) {
      s(w->title());
      object(w->contentView().get());
      object(w->toolbar().get());
    }
    if (auto* v = dynamic_cast<const View*>(o)) {
      s(v->toolTip());
      object(v->contextMenu().get());
      for (const auto& sub : v->subviews()) object(sub.get());
    }
    if (auto* c = dynamic_cast<const Control*>(o)) object(c->cell().get());
    if (auto* b = dynamic_cast<const Box*>(o)) s(b->title());
    if (auto* m = dynamic_cast<const Matrix*>(o)) {
      for (const auto& cell : m->cells()) object(cell.get());
      object(m->prototype().get());
    }
    if (auto* t = dynamic_cast<const TabView*>(o)) {
      for (const auto& item : t->tabViewItems()) object(item.get());
    }
    if (auto* t = dynamic_cast<const TableView*>(o)) {
      for (const auto& column : t->tableColumns()) object(column.get());
    }
    if (auto* c = dynamic_cast<const Cell*>(o)) {
      s(c->title());
      s(c->stringValue());
    }
    if (auto* b = dynamic_cast<const ButtonCell*>(o)) s(b->alternateTitle());
    if (auto* t = dynamic_cast<const TextFieldCell*>(o)) s(t->placeholderString());
    if (auto* m = dynamic_cast<const HasMenu*>(o)) object(m->menu().get());
    if (auto* seg = dynamic_cast<const SegmentedCell*>(o)) {
      for (const auto& segment : seg->segments()) {
        s(segment.label);
        s(segment.toolTip);
      }
    }
    if (auto* m = dynamic_cast<const Menu*>(o)) {
      s(m->title());
      for (const auto& item : m->itemArray()) object(item.get());
    }
    if (auto* i = dynamic_cast<const MenuItem*>(o)) {
      s(i->title());
      s(i->toolTip());
      object(i->submenu().get());
    }
    if (auto* t = dynamic_cast<const TabViewItem*>(o)) {
      s(t->label());
      s(t->toolTip());
      object(t->view().get());
    }
    if (auto* c = dynamic_cast<const TableColumn*>(o)) {
      s(c->headerToolTip());
      object(c->headerCell().get());
      object(c->dataCell().get());
      for (const auto& p : c->prototypeCellViews()) object(p.get());
    }
    if (auto* t = dynamic_cast<const Toolbar*>(o)) {
      for (const auto& item : t->allowedItems()) object(item.get());
      for (const auto& item : t->defaultItems()) object(item.get());
    }
    if (auto* i = dynamic_cast<const ToolbarItem*>(o)) {
      s(i->label());
      s(i->paletteLabel());
      s(i->toolTip());
      object(i->view().get());
      object(i->menuFormRepresentation().get());
    }
  }

 private:
  std::unordered_set<const Object*> seen_;
};

enum class Form { KeyedArchive, NIBArchive, XMLArchive, Document, Storyboard, XMLPropertyList };

struct Checked {
  std::string path;
  Form form;
  std::size_t strings;
};

TEST(NibFormsCorpus, EveryVisibleStringOfEveryFormReachesTheModel) {
  TQ_SKIP_WITHOUT_CORPUS();
  std::vector<Checked> checked;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(test::corpusDir())) {
    const auto& path = entry.path();
    if (!entry.is_regular_file()) continue;
    const std::string name = path.filename().string();
    const bool compiled = path.extension() == ".nib" && name != "classes.nib" && name != "info.nib";
    if (!compiled && path.extension() != ".xib" && path.extension() != ".storyboard") continue;
    const std::string bytes = test::readAll(path);
    Strings expected;
    Form form;
    pugi::xml_document doc;
    if (bytes.rfind("bplist00", 0) == 0) {
      form = Form::KeyedArchive;
      expected = expectedFromKeyedArchive(bytes);
    } else if (bytes.rfind("NIBArchive", 0) == 0) {
      form = Form::NIBArchive;
      expected = expectedFromNIBArchive(bytes);
    } else {
      ASSERT_TRUE(doc.load_buffer(bytes.data(), bytes.size())) << path;
      form = std::strcmp(doc.document_element().name(), "archive") == 0 ? Form::XMLArchive
             : doc.document_element().child("scenes")                   ? Form::Storyboard
                                                                        : Form::Document;
      expected = form == Form::XMLArchive ? expectedFromXMLArchive(doc) : expectedFromDocument(doc);
    }
    // A nib folder is read as the bundle finds it: through its folder.
    const std::string readPath = path.parent_path().extension() == ".nib" ? path.parent_path().string() : path.string();
    NibReadResult r = readNibFile(readPath);
    ASSERT_TRUE(r) << readPath << ": " << r.error().reason;
    for (const auto& w : r.nib().warnings()) ADD_FAILURE() << path << ": " << w;
    ModelStrings model;
    for (const auto& object : r.nib().topLevelObjects()) model.object(object.get());
    std::size_t missing = 0;
    for (const std::string& s : std::set<std::string>(expected.begin(), expected.end())) {
      if (!model.strings.count(s)) {
        ADD_FAILURE() << path << ": \"" << s << "\" is not in the loaded model";
        ++missing;
      }
    }
    EXPECT_GT(expected.size(), 0u) << path;
    checked.push_back({path.string(), form, expected.size()});
    if (form != Form::KeyedArchive) continue;
    // Saved as XML: the strings libplist finds there, and the same model as the binary form.
    const std::string xml = asXMLPropertyList(bytes);
    const Strings fromXML = expectedFromKeyedArchive(xml, true);
    EXPECT_EQ(fromXML, expected) << path << " as XML";
    NibReadResult again = readNibData(xml);
    ASSERT_TRUE(again) << path << " as XML: " << again.error().reason;
    ModelStrings xmlModel;
    for (const auto& object : again.nib().topLevelObjects()) xmlModel.object(object.get());
    for (const std::string& s : std::set<std::string>(fromXML.begin(), fromXML.end())) {
      EXPECT_TRUE(xmlModel.strings.count(s)) << path << " as XML: \"" << s << "\" is not in the loaded model";
    }
    EXPECT_EQ(again.nib().objectCount(), r.nib().objectCount()) << path << " as XML";
    checked.push_back({path.string() + " as XML", Form::XMLPropertyList, fromXML.size()});
  }
  // Every form the corpus holds was met, with a real number of strings each.
  std::map<Form, std::size_t> perForm;
  for (const auto& c : checked) perForm[c.form] += c.strings;
  EXPECT_GT(perForm[Form::KeyedArchive], 300u);
  EXPECT_GT(perForm[Form::NIBArchive], 20u);
  EXPECT_GT(perForm[Form::XMLArchive], 100u);
  EXPECT_GT(perForm[Form::Document], 300u);
  EXPECT_GT(perForm[Form::Storyboard], 150u);
  EXPECT_GT(perForm[Form::XMLPropertyList], 300u);
  EXPECT_GE(checked.size(), 26u);
}

// Objects the model has no class for (constraints, controllers) keep every XML attribute of their
// element, in document order, as pugixml reads the file's own bytes; the first reader of the
// attributes, and a second one, see the same.
TEST(NibFormsCorpus, GenericObjectsKeepTheirElementsAttributes) {
  TQ_SKIP_WITHOUT_CORPUS();
  const auto path = test::corpusDir() / "transmission/macosx/Base.lproj/PrefsWindow.xib";
  pugi::xml_document doc;
  ASSERT_TRUE(doc.load_file(path.c_str()));
  NibReadResult r = readNibFile(path.string());
  ASSERT_TRUE(r) << r.error().reason;
  int checked = 0;
  for (pugi::xpath_node x : doc.select_nodes("/document/objects//*[self::constraint or (self::customObject and not(starts-with(@id, '-')))]")) {
    pugi::xml_node n = x.node();
    auto object = std::dynamic_pointer_cast<GenericObject>(r.nib().objectWithIdentifier(String::fromUTF8(n.attribute("id").value())));
    ASSERT_TRUE(object) << n.attribute("id").value();
    for (int pass = 0; pass < 2; ++pass) {
      const auto& entries = object->attributes().entries();
      std::size_t i = 0;
      for (pugi::xml_attribute a : n.attributes()) {
        ASSERT_LT(i, entries.size()) << n.attribute("id").value();
        EXPECT_EQ(entries[i].first.UTF8String(), a.name());
        EXPECT_EQ(entries[i].second.stringValue().UTF8String(), a.value());
        ++i;
      }
      EXPECT_EQ(i, entries.size());
    }
    ++checked;
  }
  EXPECT_GT(checked, 400);
}

TEST(GenericObject, AttributesSetAfterTheFirstQuestionStillArrive) {
  GenericObject object;
  EXPECT_EQ(object.attributes().count(), 0u);
  EXPECT_FALSE(object.attributes().isNil());
  GenericObject given;
  given.setAttributes(Dictionary());
  EXPECT_TRUE(given.attributes().isNil()) << "nil given is nil kept";
  static const char packed[] = "firstItem\0abc\0constant\08\0";
  object.setArchivedAttributes(std::string(packed, sizeof packed - 1));
  ASSERT_EQ(object.attributes().count(), 2u);
  EXPECT_EQ(object.attributes().objectForKey(u"constant").stringValue(), String(u"8"));
  object.setAttributes(Dictionary({{u"a", Value(String(u"b"))}}));
  EXPECT_EQ(object.attributes().count(), 1u);
}

// The typed form as its header describes it, written out by hand: counted names and texts (a text may
// hold a NUL), numbers as doubles; the attributes come back in order, each of its own type.
TEST(GenericObject, TypedAttributesKeepNumbersAsNumbersAndTextsWhole) {
  std::string packed;
  auto counted = [&](std::string_view text) {
    const auto length = static_cast<uint32_t>(text.size());
    packed.append(reinterpret_cast<const char*>(&length), sizeof length).append(text);
  };
  const double constant = 8.5;
  counted("constant");
  packed += 'n';
  packed.append(reinterpret_cast<const char*>(&constant), sizeof constant);
  counted("identifier");
  packed += 's';
  counted(std::string_view("a\0b", 3));
  counted("empty");
  packed += 's';
  counted("");
  GenericObject object;
  {
    Arena arena;
    object.setArchivedTypedAttributes(packed, arena);
  }  // the object keeps its own copy, and the arena holding it
  packed.assign(packed.size(), 'x');
  const auto& entries = object.attributes().entries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].first, String(u"constant"));
  EXPECT_EQ(entries[0].second.type(), Value::Type::Real);
  EXPECT_EQ(entries[0].second.doubleValue(), 8.5);
  EXPECT_EQ(entries[1].first, String(u"identifier"));
  EXPECT_EQ(entries[1].second.stringValue().length(), 3u);
  EXPECT_EQ(entries[2].second.stringValue(), String(u""));
}

TEST(GenericObject, FirstQuestionsFromManyThreadsAllSeeTheAttributes) {
  static const char packed[] = "firstItem\0abc\0constant\08\0";
  std::vector<GenericObject> objects(256);
  for (auto& o : objects) o.setArchivedAttributes(std::string(packed, sizeof packed - 1));
  std::vector<std::vector<std::size_t>> seen(4);
  std::vector<std::thread> threads;
  for (auto& mine : seen) {
    threads.emplace_back([&objects, &mine] {
      for (const auto& o : objects) mine.push_back(o.attributes().objectForKey(u"firstItem").stringValue().length());
    });
  }
  for (auto& t : threads) t.join();
  for (const auto& mine : seen) EXPECT_EQ(mine, std::vector<std::size_t>(objects.size(), 3u));
}

}  // namespace
}  // namespace tq
