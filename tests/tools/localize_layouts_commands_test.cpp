// tqkit localize --all on bundles in each layout a release engineer meets: languages with their own
// compiled copies, Base compiled nibs with tables keyed as the document tools generate them, xibs
// and storyboards with tables, an interface a language lacks, a language folder that is a link to
// another. Every count is checked against what the test wrote into the files.
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/dumping_process.h"
#include "support/keyed_archive_writer.h"
#include "support/shell.h"
#include "support/test_paths.h"
#include "tools/tool_files.h"

namespace {

namespace fs = std::filesystem;
using namespace tq::test;

// --- compiled interfaces, written as the archiver writes them ---------------------------------------

// One string of a compiled alert: a window title, or the title of a button or label.
struct Text {
  int oid;          // the object's designer id (the window's, or the control's; cells have none)
  std::string cls;  // "NSWindowTemplate", "NSButton" or "NSTextField"
  std::string text;
  std::string key;  // the NSLocalizableString key, or empty for a plain string
};

// A window template of the given size with an empty content view: the window and its content.
std::pair<uint64_t, uint64_t> windowTemplate(KeyedArchiveWriter& w, const std::string& rect, const std::string& size) {
  const uint64_t window = w.make("NSWindowTemplate", {{"NSWindowRect", w.string(rect)}});
  const uint64_t content = w.make("NSView", {{"NSFrameSize", w.string(size)}});
  w.ref(window, "NSWindowView", content);
  return {window, content};
}

// A string as the archive holds it: an NSLocalizableString under `key`, or plain when it has none.
uint64_t archivedString(KeyedArchiveWriter& w, const std::string& s, const std::string& key) {
  if (key.empty()) return w.string(s);
  return w.make("NSLocalizableString", {{"NSKey", w.string(key)}, {"NS.string", w.string(s)}});
}

// A compiled nib holding one window with the given strings. `padding` unrelated objects come
// first, so that objects sit at other places of the archive than in another compilation.
std::string compiledAlert(const std::vector<Text>& texts, int padding) {
  KeyedArchiveWriter w;
  for (int i = 0; i < padding; ++i) w.string("padding " + std::to_string(i));
  const auto [window, content] = windowTemplate(w, "{{100, 100}, {420, 160}}", "{420, 160}");
  std::vector<uint64_t> subviews;
  int y = 20;
  for (const Text& t : texts) {
    uint64_t holder = window;
    if (t.cls == "NSWindowTemplate") {
      w.ref(window, "NSWindowTitle", archivedString(w, t.text, t.key));
    } else {
      holder = w.make(t.cls, {{"NSFrame", w.string("{{20, " + std::to_string(y) + "}, {380, 24}}")}});
      y += 30;
      const uint64_t cell = w.make(t.cls == "NSButton" ? "NSButtonCell" : "NSTextFieldCell",
                                   {{"NSContents", archivedString(w, t.text, t.key)}});
      w.ref(holder, "NSCell", cell);
      subviews.push_back(holder);
    }
    w.setObjectId(holder, t.oid);
  }
  w.ref(content, "NSSubviews", w.array(subviews));
  return w.binary({window});
}

// --- reading the report -----------------------------------------------------------------------------

struct Counts {
  long translated, missing, unused;
};
// The row's mode and counts, compared as one line.
void expectCounts(const std::string& row, const std::string& mode, Counts c, const std::string& what) {
  const std::string got = jsonField(row, "mode") + " " + jsonField(row, "translated") + " " +
                          jsonField(row, "missingCount") + " " + jsonField(row, "unusedCount");
  EXPECT_EQ(got, mode + " " + std::to_string(c.translated) + " " + std::to_string(c.missing) + " " + std::to_string(c.unused))
      << what << "\n" << row.substr(0, 1500);
}

class Bundle {
 public:
  Bundle() : resources_(dir_.path() / "App.app/Contents/Resources") {}
  const fs::path& resources() const { return resources_; }
  std::string path() const { return (dir_.path() / "App.app").string(); }
  std::string report(const std::string& flags = "--json") const {
    auto r = sh("$T localize '" + path() + "' --all " + flags + " 2>&1");
    EXPECT_EQ(r.status, 0) << r.out;
    return r.out;
  }
  const fs::path& dir() const { return dir_.path(); }

 private:
  tq::test::TempDir dir_;
  fs::path resources_;
};

// --- each layout ------------------------------------------------------------------------------------

// Each language's copy compiled apart: the archive places objects elsewhere and the cells carry no
// identifiers, so only the controls' ids and the places in the tree tie the copies together. A
// translation the same as the original ("OK") is a translation.
TEST(LocalizeLayouts, CompiledCopiesAreComparedObjectByObject) {
  const std::vector<Text> english = {{1, "NSWindowTemplate", "Software Update", ""},
                                     {10, "NSTextField", "A new version is available.", ""},
                                     {11, "NSButton", "Install Update", ""},
                                     {12, "NSButton", "Remind Me Later", ""},
                                     {13, "NSButton", "OK", ""}};
  const std::map<std::string, std::vector<Text>> copies = {
      {"de", {{1, "NSWindowTemplate", "Softwareaktualisierung", ""},
              {10, "NSTextField", "Eine neue Version ist verfügbar.", ""},
              {11, "NSButton", "Installieren", ""},
              {12, "NSButton", "Später erinnern", ""},
              {13, "NSButton", "OK", ""}}},
      // The French copy never got the reminder button.
      {"fr", {{1, "NSWindowTemplate", "Mise à jour", ""},
              {10, "NSTextField", "Une nouvelle version est disponible.", ""},
              {11, "NSButton", "Installer", ""},
              {13, "NSButton", "OK", ""}}},
      // The Spanish copy's buttons were numbered apart: its ids name other buttons than the same
      // ids in English, so the places in the tree decide.
      {"es", {{1, "NSWindowTemplate", "Actualización", ""},
              {10, "NSTextField", "Hay una versión nueva.", ""},
              {13, "NSButton", "Instalar", ""},
              {11, "NSButton", "Recordar más tarde", ""},
              {12, "NSButton", "OK", ""}}}};
  Bundle b;
  write(b.resources() / "en.lproj/Alert.nib", compiledAlert(english, 0));
  int padding = 3;
  for (const auto& [language, texts] : copies) write(b.resources() / (language + ".lproj/Alert.nib"), compiledAlert(texts, padding++));
  const std::string json = b.report();
  for (const auto& [language, texts] : copies) {
    std::set<int> there;
    for (const Text& t : texts) there.insert(t.oid);
    long present = 0;
    for (const Text& t : english) present += there.count(t.oid);
    expectCounts(rowOf(json, "Alert", language), "copy",
                 {present, static_cast<long>(english.size()) - present, 0}, language);
  }
  // What the French copy lacks is named by the control's id and shown in English.
  EXPECT_NE(rowOf(json, "Alert", "fr").find("\"key\":\"12/cell.title\",\"before\":\"Remind Me Later\",\"after\":null,"
                                            "\"status\":\"untranslated\""),
            std::string::npos)
      << rowOf(json, "Alert", "fr");
  EXPECT_NE(rowOf(json, "Alert", "es").find("\"before\":\"Install Update\",\"after\":\"Instalar\""), std::string::npos);
  EXPECT_NE(rowOf(json, "Alert", "de").find("\"before\":\"Install Update\",\"after\":\"Installieren\""), std::string::npos);
  EXPECT_EQ(count(json, "{\"interface\":"), copies.size());
}

// Base compiled nibs keep each string's key ("170.title"), which each language's table uses.
TEST(LocalizeLayouts, BaseCompiledNibsAreTranslatedByTheKeysTheyKeep) {
  const std::vector<Text> base = {{1, "NSWindowTemplate", "Software Update", "5.title"},
                                  {10, "NSTextField", "A new version is available.", "170.title"},
                                  {11, "NSButton", "Install Update", "171.title"},
                                  {12, "NSButton", "OK", "172.title"}};
  const std::map<std::string, std::string> tables = {
      {"de", "\"5.title\" = \"Softwareaktualisierung\";\n\"171.title\" = \"Installieren\";\n"
             "\"172.title\" = \"OK\";\n\"99.title\" = \"Nicht mehr da\";\n"},
      {"fr", "\"170.title\" = \"Une nouvelle version est disponible.\";\n"},
      {"it", ""}};  // no table at all
  Bundle b;
  write(b.resources() / "Base.lproj/Alert.nib", compiledAlert(base, 0));
  fs::create_directories(b.resources() / "en.lproj");
  for (const auto& [language, table] : tables) {
    fs::create_directories(b.resources() / (language + ".lproj"));
    if (!table.empty()) write(b.resources() / (language + ".lproj/Alert.strings"), table);
  }
  const std::string json = b.report();
  for (const auto& [language, table] : tables) {
    const std::set<std::string> keys = keysOf(table);
    long translated = 0;
    for (const Text& t : base) translated += keys.count(t.key);
    const std::string row = rowOf(json, "Alert", language);
    expectCounts(row, "by-id", {translated, static_cast<long>(base.size()) - translated,
                                static_cast<long>(keys.size()) - translated}, language);
    EXPECT_NE(row.find(table.empty() ? "\"tableFound\":false" : "\"tableFound\":true"), std::string::npos) << row;
  }
}

// A Base xib with by-id tables, and a language with a copy of its own beside it: one row each, in
// the way that applies. An interface the development language has and a language lacks is
// reported, as absent.
TEST(LocalizeLayouts, XibsWithTablesGetOneRowPerLanguageAndLackingOnesAreAbsent) {
  const std::string xib = readAll(dataDir() / "tools/Prefs.xib");
  Bundle b;
  write(b.resources() / "Base.lproj/Prefs.xib", xib);
  const std::string fr = "\"W1-aa-001.title\" = \"Préférences\";\n\"C2-aa-001.title\" = \"OK\";\n";
  write(b.resources() / "fr.lproj/Prefs.strings", fr);
  std::string german = xib;
  german.replace(german.find("title=\"Preferences\""), 19, "title=\"Einstellungen\"");
  german.replace(german.find("title=\"Check automatically\""), 27, "title=\"Automatisch suchen\"");
  write(b.resources() / "de.lproj/Prefs.xib", german);
  // The same document as an interface of the development language alone, which only French copies.
  write(b.resources() / "en.lproj/About.xib", xib);
  write(b.resources() / "fr.lproj/About.xib", german);
  const std::string json = b.report();
  // The strings of the Base interface, read from its text.
  std::set<std::string> texts;
  const std::regex title("title=\"([^\"]+)\" id=\"([^\"]+)\"");
  for (auto it = std::sregex_iterator(xib.begin(), xib.end(), title); it != std::sregex_iterator(); ++it) {
    texts.insert((*it)[2].str() + ".title");
  }
  ASSERT_EQ(texts.size(), 3u);
  const long strings = static_cast<long>(texts.size()), inTable = static_cast<long>(keysOf(fr).size());
  expectCounts(rowOf(json, "Prefs", "fr"), "by-id", {inTable, strings - inTable, 0}, "fr");
  expectCounts(rowOf(json, "Prefs", "de"), "copy", {strings, 0, 0}, "de");
  EXPECT_EQ(count(json, "{\"interface\":\"Prefs\",\"localization\":\"de\""), 1u) << "no by-id row beside the copy";
  expectCounts(rowOf(json, "About", "de"), "absent", {0, strings, 0}, "About de");
  expectCounts(rowOf(json, "About", "fr"), "copy", {strings, 0, 0}, "About fr");
  EXPECT_NE(json.find("\"localization\":\"de\",\"aliases\":[],\"interfaces\":2,\"absent\":1,"), std::string::npos)
      << json;
  EXPECT_EQ(count(json, "{\"interface\":"), 4u);
}

// A language folder that is a link to another is the same language: reported once, as an alias.
TEST(LocalizeLayouts, ALinkedLanguageFolderIsReportedOnceAsAnAlias) {
  Bundle b;
  write(b.resources() / "en.lproj/Alert.nib", compiledAlert({{1, "NSWindowTemplate", "Update", ""},
                                                             {11, "NSButton", "Install", ""}}, 0));
  write(b.resources() / "pt.lproj/Alert.nib", compiledAlert({{1, "NSWindowTemplate", "Atualização", ""}}, 2));
  fs::create_directory_symlink("pt.lproj", b.resources() / "pt_PT.lproj");
  const std::string json = b.report();
  expectCounts(rowOf(json, "Alert", "pt"), "copy", {1, 1, 0}, "pt");
  EXPECT_EQ(count(json, "\"localization\":\"pt_PT\""), 1u) << "only as the alias: " << json;
  EXPECT_NE(json.find("{\"localization\":\"pt\",\"aliases\":[\"pt_PT\"]"), std::string::npos);
  EXPECT_NE(json.find("\"aliases\":[{\"localization\":\"pt_PT\",\"sameAs\":\"pt\"}]"), std::string::npos);
}

// --- storyboards -------------------------------------------------------------------------------------

// One string of a storyboard, held by the object the tables name it by.
struct Item {
  std::string kind;  // "window", "tab", "label", "check", "separator", "untitledBox" or "column"
  std::string id;
  std::string text;
  std::string note;  // the designer's note to translators
  // Whether a translator must translate it: a separator's title and a box's placed with no title
  // are never shown, and "#bc-ignore!" in the text or the note says not to.
  bool localizable;
  std::string key() const { return id + (kind == "column" ? ".headerCell.title" : kind == "tab" ? ".label" : ".title"); }
  // What the compiled storyboard holds of it: not the tabs, nor the notes (what only the note marks
  // is to be translated there).
  bool in(const std::string& form) const { return form == "document" || kind != "tab"; }
  bool localizableIn(const std::string& form) const { return in(form) && (localizable || (form == "compiled" && !note.empty())); }
};

// The document: a window controller whose content is a tab view controller, a "tab" item starting
// each pane (a view controller of its own) holding the items up to the next.
std::string storyboardDocument(const std::vector<Item>& items) {
  std::string title, tabs, segues, panes, views;
  int y = 20, pane = 0;
  const auto endPane = [&] {
    if (pane == 0) return;
    const std::string p = std::to_string(pane);
    panes += " <scene sceneID=\"S-pane" + p + "\"><objects><viewController id=\"VC" + p +
             "\" sceneMemberID=\"viewController\"><view key=\"view\" id=\"V" + p +
             "\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"360\" height=\"300\"/><subviews>" + views +
             "</subviews></view></viewController></objects></scene>\n";
    views.clear(), y = 20;
  };
  for (const Item& i : items) {
    const std::string frame = "<rect key=\"frame\" x=\"20\" y=\"" + std::to_string(y) + "\" width=\"300\" height=\"22\"/>";
    const std::string note = i.note.empty() ? "" : "<attributedString key=\"userComments\"><fragment content=\"" + i.note + "\"/></attributedString>";
    y += 30;
    if (i.kind == "window") {
      title = i.text;
    } else if (i.kind == "tab") {
      endPane();
      const std::string p = std::to_string(++pane);
      tabs += "<tabViewItem label=\"" + i.text + "\" id=\"" + i.id + "\"/>";
      segues += "<segue destination=\"VC" + p + "\" kind=\"relationship\" relationship=\"tabItems\" id=\"R" + p + "\"/>";
    } else if (i.kind == "label" || i.kind == "check") {
      const bool label = i.kind == "label";
      views += std::string(label ? "<textField" : "<button") + " id=\"v" + i.id + "\">" + frame +
               (label ? "<textFieldCell key=\"cell\"" : "<buttonCell key=\"cell\" type=\"check\"") + " title=\"" + i.text +
               "\" id=\"" + i.id + "\"><font key=\"font\" metaFont=\"system\"/>" + note +
               (label ? "</textFieldCell></textField>" : "</buttonCell></button>");
    } else if (i.kind == "separator") {
      views += "<box boxType=\"separator\" id=\"" + i.id + "\">" + frame + "</box>";
    } else if (i.kind == "untitledBox") {
      views += "<box title=\"" + i.text + "\" titlePosition=\"noTitle\" id=\"" + i.id + "\">" + frame +
               "<view key=\"contentView\" id=\"c" + i.id + "\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"300\" height=\"22\"/></view></box>";
    } else if (i.kind == "column") {
      views += "<tableView id=\"v" + i.id + "\">" + frame + "<tableColumns><tableColumn width=\"120\" id=\"" + i.id +
               "\"><tableHeaderCell key=\"headerCell\" title=\"" + i.text + "\" id=\"h" + i.id +
               "\"/><textFieldCell key=\"dataCell\" id=\"d" + i.id + "\"/></tableColumn></tableColumns></tableView>";
    }
  }
  endPane();
  // The skeleton: a window scene, the tab scene, then the panes.
  std::string document = readAll(dataDir() / "tools/Tabs.storyboard");
  const std::pair<std::string, std::string> marks[] = {{"@TITLE@", title}, {"@TABS@", tabs}, {"@SEGUES@", segues}, {"@PANES@", panes}};
  for (const auto& [mark, text] : marks) {
    document.replace(document.find(mark), mark.size(), text);
  }
  return document;
}

// The same strings compiled: NAME.storyboardc with one window controller's nib, each string an
// NSLocalizableString with the key the tables name it by.
void writeCompiledStoryboard(const fs::path& folder, const std::vector<Item>& items) {
  write(folder / "Info.plist", readAll(dataDir() / "tools/Pane-Info.plist"));
  KeyedArchiveWriter w;
  const auto cell = [&](const char* cls, const Item& i) {
    return w.make(cls, {{"NSContents", archivedString(w, i.text, i.key())}});
  };
  const auto [window, content] = windowTemplate(w, "{{100, 100}, {360, 300}}", "{360, 300}");
  std::vector<uint64_t> views;
  int y = 20;
  for (const Item& i : items) {
    if (!i.in("compiled")) continue;
    if (i.kind == "window") {
      w.ref(window, "NSWindowTitle", archivedString(w, i.text, i.key()));
      continue;
    }
    const bool box = i.kind == "separator" || i.kind == "untitledBox";
    const uint64_t v = w.make(i.kind == "label" ? "NSTextField" : i.kind == "check" ? "NSButton" : box ? "NSBox" : "NSTableView",
                              {{"NSFrame", w.string("{{20, " + std::to_string(y) + "}, {300, 22}}")}});
    y += 30;
    if (i.kind == "label") w.ref(v, "NSCell", cell("NSTextFieldCell", i));
    if (i.kind == "check") w.ref(v, "NSCell", cell("NSButtonCell", i));
    if (box) {
      w.ref(v, "NSTitleCell", cell("NSTextFieldCell", i));
      w.set(v, i.kind == "separator" ? "NSBoxType" : "NSTitlePosition", plist_new_uint(i.kind == "separator" ? 2 : 0));
    }
    if (i.kind == "column") {
      w.ref(v, "NSTableColumns", w.array({w.make("NSTableColumn", {{"NSHeaderCell", cell("NSTableHeaderCell", i)}})}));
    }
    views.push_back(v);
  }
  w.ref(content, "NSSubviews", w.array(views));
  w.write(folder / "NSWindowController-WC.nib", {w.make("NSWindowController", {{"NSWindowTemplate", window}})});
}

// A Base storyboard (document and compiled) with per-language tables, and a language with its own
// copies: one row per interface and language, each counted from the items and the tables, the
// pane a tab does not show included; the strings no translator must translate neither translated
// nor missing; one picture per scene.
TEST(LocalizeLayouts, StoryboardsWithTablesAndCopies) {
  const std::vector<Item> items = {{"window", "W-1", "Preferences", "", true},
                                   {"tab", "TAB-1", "General", "", true},
                                   {"label", "L-1", "Name", "", true},
                                   {"check", "K-1", "Check for updates", "", true},
                                   {"column", "COL-1", "Name", "", true},
                                   {"separator", "SEP-1", "Title", "", false},
                                   {"untitledBox", "BOX-1", "Box", "", false},
                                   {"tab", "TAB-2", "Advanced", "", true},
                                   {"label", "L-2", "#bc-ignore!", "", false},
                                   {"check", "K-2", "https://example.org", "#bc-ignore!", false},
                                   {"check", "K-3", "Use a proxy", "", true}};
  // Tables keyed as the document tools generate them: a stale key, and one for an ignored string.
  const std::map<std::string, std::string> tables = {
      {"de", "\"W-1.title\" = \"Einstellungen\";\n\"L-1.title\" = \"Name\";\n\"COL-1.headerCell.title\" = \"Name\";\n"
             "\"TAB-2.label\" = \"Erweitert\";\n\"K-3.title\" = \"Proxy verwenden\";\n\"L-2.title\" = \"#bc-ignore!\";\n"
             "\"GONE-1.title\" = \"Weg\";\n"},
      {"it", ""}};  // no table at all
  // The French copies: translated, but without the first check box.
  const std::map<std::string, std::string> french = {{"W-1", "Préférences"}, {"TAB-1", "Général"}, {"L-1", "Nom"},
                                                     {"COL-1", "Nom"}, {"TAB-2", "Avancé"}, {"K-3", "Utiliser un proxy"}};
  std::vector<Item> copy;
  for (Item i : items) {
    if (i.id == "K-1") continue;
    if (french.count(i.id)) i.text = french.at(i.id);
    copy.push_back(i);
  }
  Bundle b;
  const std::string document = storyboardDocument(items);
  write(b.resources() / "Base.lproj/Main.storyboard", document);
  writeCompiledStoryboard(b.resources() / "Base.lproj/Pane.storyboardc", items);
  write(b.resources() / "fr.lproj/Main.storyboard", storyboardDocument(copy));
  writeCompiledStoryboard(b.resources() / "fr.lproj/Pane.storyboardc", copy);
  fs::create_directories(b.resources() / "en.lproj");
  for (const auto& [language, table] : tables) {
    fs::create_directories(b.resources() / (language + ".lproj"));
    for (const char* name : {"Main", "Pane"}) {
      if (!table.empty()) write(b.resources() / (language + ".lproj/" + name + ".strings"), table);
    }
  }
  const fs::path page = b.dir() / "page";
  const std::string json = b.report("--json --html '" + page.string() + "'");

  std::set<std::string> inCopy;
  for (const Item& i : copy) inCopy.insert(i.id);
  for (const auto& [name, form] : std::map<std::string, std::string>{{"Main", "document"}, {"Pane", "compiled"}}) {
    long localizable = 0;
    std::set<std::string> keys;
    for (const Item& i : items) {
      localizable += i.localizableIn(form);
      if (i.in(form)) keys.insert(i.key());
    }
    for (const auto& [language, table] : tables) {
      long translated = 0, unused = 0;
      for (const Item& i : items) translated += i.localizableIn(form) && keysOf(table).count(i.key());
      for (const auto& k : keysOf(table)) unused += !keys.count(k);
      expectCounts(rowOf(json, name, language), "by-id", {translated, localizable - translated, unused}, name + " " + language);
    }
    long present = 0;
    for (const Item& i : items) present += i.localizableIn(form) && inCopy.count(i.id);
    expectCounts(rowOf(json, name, "fr"), "copy", {present, localizable - present, 0}, name + " fr");
  }
  // The compiled header cell's key names its column.
  EXPECT_NE(rowOf(json, "Pane", "de").find("{\"class\":\"NSTableColumn\",\"id\":\"COL-1\",\"property\":\"headerCell.title\","
                                           "\"key\":\"COL-1.headerCell.title\",\"before\":\"Name\",\"after\":\"Name\","
                                           "\"status\":\"translated\"}"),
            std::string::npos)
      << rowOf(json, "Pane", "de");
  EXPECT_EQ(count(json, "{\"interface\":"), 2 * (tables.size() + 1));
  // The document's pictures: one per scene.
  std::size_t pictures = 0;
  for (const auto& e : fs::directory_iterator(page)) {
    pictures += e.path().filename().string().starts_with("Main-") && e.path().string().ends_with("-before.png");
  }
  EXPECT_EQ(pictures, count(document, "<scene "));
}

// --- what a user reads --------------------------------------------------------------------------------

// The page: each language's totals first, then the interfaces; missing strings with the development
// text beside the key; a language without a table said so once; long errors folded; the "before"
// pictures are the development language's.
TEST(LocalizeLayouts, ThePageLeadsWithTheLanguagesAndShowsTheDevelopmentText) {
  Bundle b;
  const std::vector<Text> english = {{1, "NSWindowTemplate", "Software Update", "5.title"},
                                     {11, "NSButton", "Install Update", "171.title"},
                                     {12, "NSButton", "Remind Me Later", "172.title"}};
  write(b.resources() / "Base.lproj/Alert.nib", compiledAlert(english, 0));
  write(b.resources() / "de.lproj/Alert.strings", "\"5.title\" = \"Softwareaktualisierung\";\n");
  fs::create_directories(b.resources() / "it.lproj");
  write(b.resources() / "en.lproj/Panel.nib", compiledAlert({{1, "NSWindowTemplate", "Panel", ""},
                                                             {11, "NSButton", "Close the panel", ""}}, 0));
  write(b.resources() / "de.lproj/Panel.nib", compiledAlert({{1, "NSWindowTemplate", "Tafel", ""},
                                                             {11, "NSButton", "Die Tafel schließen", ""}}, 1));
  write(b.resources() / "it.lproj/Panel.nib", std::string("bplist00") + std::string(200, 'x'));
  const fs::path page = b.dir() / "page";
  const std::string json = b.report("--json --html '" + page.string() + "'");
  const std::string html = readAll(page / "index.html");
  ASSERT_FALSE(html.empty()) << json;

  const auto languages = html.find("<h2>Languages</h2>"), interfaces = html.find("<h2>Interfaces</h2>");
  const auto firstPart = html.find("<section");
  ASSERT_NE(languages, std::string::npos);
  EXPECT_LT(languages, interfaces);
  EXPECT_LT(interfaces, firstPart);
  // de translates 1 of Alert's 3 strings and both of Panel's: 3 of 5.
  EXPECT_NE(html.find("<tr><td>de</td><td>60%"), std::string::npos) << html.substr(languages, 800);
  EXPECT_NE(html.find("<code>171.title</code> Install Update"), std::string::npos);
  EXPECT_EQ(count(html, "no table Alert.strings in it"), 1u);
  EXPECT_EQ(count(html, "<li><code>171.title</code>"), 2u) << "listed for de, folded for it";
  // The unreadable Italian copy: its long error folded, in the summary and in its part.
  EXPECT_GE(count(html, "<details class=\"bad\"><summary>"), 2u);

  // The German copy of the panel beside the development language's picture, which every language
  // shares; the two differ.
  const std::regex pair("<img src=\"(Panel-[^\"]*-before\\.png)\" alt=\"before\">.*?<img src=\"(Panel-de-[^\"]*-after\\.png)\"");
  std::smatch m;
  ASSERT_TRUE(std::regex_search(html, m, pair)) << html.substr(firstPart, 2000);
  const std::string before = readAll(page / m[1].str()), after = readAll(page / m[2].str());
  EXPECT_EQ(before.substr(0, 4), "\x89PNG");
  EXPECT_EQ(after.substr(0, 4), "\x89PNG");
  EXPECT_NE(before, after);
  std::size_t befores = 0;
  for (const auto& e : fs::directory_iterator(page)) befores += e.path().string().ends_with("-before.png");
  EXPECT_EQ(befores, 2u) << "Alert and Panel, drawn once each";
}

// --json: the shape the help describes, one row per interface and language, and each language's
// totals.
TEST(LocalizeLayouts, JsonRowsKeepTheirShape) {
  Bundle b;
  write(b.resources() / "Base.lproj/Alert.nib", compiledAlert({{1, "NSWindowTemplate", "Update", "5.title"}}, 0));
  write(b.resources() / "en.lproj/Only.nib", compiledAlert({{1, "NSWindowTemplate", "Only", ""}}, 0));
  write(b.resources() / "de.lproj/Alert.strings", "\"5.title\" = \"Aktualisierung\";\n");
  const std::string json = b.report();
  const std::regex row(
      "\\{\"interface\":\"[^\"]+\",\"localization\":\"[^\"]+\",\"mode\":\"(localizer|by-id|copy|absent)\","
      "\"table\":(null|\"[^\"]*\"),\"translated\":[0-9]+,\"missingCount\":[0-9]+,\"unusedCount\":[0-9]+,"
      "\"overflowing\":[0-9]+,");
  EXPECT_EQ(std::distance(std::sregex_iterator(json.begin(), json.end(), row), std::sregex_iterator()), 2) << json;
  EXPECT_NE(json.find("\"languages\":[{\"localization\":\"de\",\"aliases\":[],\"interfaces\":2,\"absent\":1,"
                      "\"withoutTable\":0,\"unreadable\":0,\"translated\":1,\"missingCount\":1,"),
            std::string::npos)
      << json;
  const std::string help = sh("$T localize --help").out;
  for (const char* field : {"interface", "localization", "mode", "translated", "missingCount", "unusedCount",
                            "overflowing", "languages", "absent", "aliases"}) {
    EXPECT_NE(help.find(std::string("\"") + field + "\""), std::string::npos) << field;
  }
}

}  // namespace
