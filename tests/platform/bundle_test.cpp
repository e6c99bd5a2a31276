// Bundles made as real folder trees in a temporary directory, and the corpus folders read as bundles.
#include "tq/platform/bundle/bundle.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "support/test_paths.h"

namespace fs = std::filesystem;
using tq::Bundle;
using tq::String;
using tq::test::write;

namespace {

String S(const std::string& s) { return String::fromUTF8(s); }

std::vector<std::string> strs(const std::vector<String>& v) {
  std::vector<std::string> out;
  for (const auto& s : v) out.push_back(s.UTF8String());
  return out;
}

// A Mac application bundle (tests/data/bundle/Sample.app, copied under `root`): Contents/Info.plist,
// Contents/Resources with unlocalized resources, English (legacy name, the development region;
// its table in UTF-16), de (a table with a byte order mark), fr (a broken table) and Base.
fs::path makeApp(const fs::path& root) {
  fs::copy(tq::test::dataDir() / "bundle/Sample.app", root / "Sample.app", fs::copy_options::recursive);
  return root / "Sample.app";
}

class EnvGuard {
 public:
  EnvGuard() {
    for (const char* v : kVars) {
      const char* value = std::getenv(v);
      saved_.emplace_back(v, value ? std::optional<std::string>(value) : std::nullopt);
      ::unsetenv(v);
    }
  }
  ~EnvGuard() {
    for (auto& [name, value] : saved_) value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
  }

 private:
  static constexpr const char* kVars[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};
  std::vector<std::pair<const char*, std::optional<std::string>>> saved_;
};

// A polymorphic class whose type information lives in this test program.
struct LocalClass {
  virtual ~LocalClass() = default;
};

}  // namespace

TEST(BundleLayout, ResourceDirectoryAndInfoPlistForEachLayout) {
  tq::test::TempDir tmp;
  fs::path app = makeApp(tmp.path());
  auto mac = Bundle::bundleWithPath(S(app.string()));
  ASSERT_TRUE(mac);
  EXPECT_EQ(mac->resourcePath(), S((app / "Contents/Resources").string()));
  EXPECT_EQ(mac->bundleIdentifier(), String(u"org.tqkit.sample"));
  EXPECT_EQ(mac->developmentLocalization(), String(u"English"));
  EXPECT_EQ(mac->infoDictionary().objectForKey(u"LSMinimumSystemVersion").integerValue(), 10);
  EXPECT_EQ(Bundle::bundleWithPath(S(app.string() + "/")), mac);  // one object per folder

  // A framework with Versions/Current as a link and its Info.plist inside Resources (the binary
  // form is read by the property-list tests, through a bundle too).
  fs::path fw = tmp.path() / "Kit.framework";
  write(fw / "Versions/A/Resources/Info.plist",
        "<plist><dict><key>CFBundleIdentifier</key><string>org.tqkit.layout.framework</string></dict></plist>");
  fs::create_directory_symlink("A", fw / "Versions/Current");
  auto framework = Bundle::bundleWithPath(S(fw.string()));
  ASSERT_TRUE(framework);
  EXPECT_EQ(framework->resourcePath(), S((fw / "Versions/Current/Resources").string()));
  EXPECT_EQ(framework->bundleIdentifier(), String(u"org.tqkit.layout.framework"));
  EXPECT_TRUE(framework->developmentLocalization().isNil());

  fs::path plain = tmp.path() / "plain";
  write(plain / "Resources/x.txt", "");
  write(plain / "Info.plist", "not a plist");
  auto withResources = Bundle::bundleWithPath(S(plain.string()));
  EXPECT_EQ(withResources->resourcePath(), S((plain / "Resources").string()));
  EXPECT_EQ(withResources->infoDictionary().count(), 0u);
  EXPECT_TRUE(withResources->bundleIdentifier().isNil());

  fs::path flat = tmp.path() / "flat";
  write(flat / "x.txt", "");
  EXPECT_EQ(Bundle::bundleWithPath(S(flat.string()))->resourcePath(), S(flat.string()));
  EXPECT_FALSE(Bundle::bundleWithPath(S((flat / "x.txt").string())));
  EXPECT_FALSE(Bundle::bundleWithPath(S((tmp.path() / "missing").string())));

  EXPECT_EQ(Bundle::bundleWithIdentifier(u"org.tqkit.sample"), mac);
  EXPECT_EQ(Bundle::bundleWithIdentifier(u"org.tqkit.layout.framework"), framework);
  EXPECT_FALSE(Bundle::bundleWithIdentifier(u"org.tqkit.never.opened"));
}

TEST(BundleLanguages, UserLanguagesFollowTheVariablePrecedence) {
  EnvGuard guard;
  EXPECT_TRUE(Bundle::userLanguages().empty());
  ::setenv("LANG", "fr_FR.UTF-8", 1);
  EXPECT_EQ(strs(Bundle::userLanguages()), (std::vector<std::string>{"fr_FR.UTF-8"}));
  ::setenv("LC_MESSAGES", "ja_JP", 1);
  EXPECT_EQ(strs(Bundle::userLanguages()), (std::vector<std::string>{"ja_JP"}));
  ::setenv("LC_ALL", "C", 1);  // set, and names no language
  EXPECT_TRUE(Bundle::userLanguages().empty());
  ::setenv("LANGUAGE", "de_DE:en::pt_BR", 1);
  EXPECT_EQ(strs(Bundle::userLanguages()), (std::vector<std::string>{"de_DE", "en", "pt_BR"}));
}

TEST(BundleLanguages, MatchingCodesRegionsAndLegacyNames) {
  std::vector<String> locs = {u"Base", u"English", u"German", u"de", u"de-DE", u"de_DE", u"fr", u"ja", u"pt-BR", u"zh-Hans"};
  EXPECT_EQ(strs(Bundle::preferredLocalizationsFromArray(locs, {u"de_DE.UTF-8@euro"})),
            (std::vector<std::string>{"de-DE", "de_DE", "de", "German"}));
  EXPECT_EQ(strs(Bundle::preferredLocalizationsFromArray(locs, {u"Japanese", u"en_US", u"French"})),
            (std::vector<std::string>{"ja", "English", "fr"}));
  EXPECT_EQ(strs(Bundle::preferredLocalizationsFromArray(locs, {u"pt_BR", u"zh_CN"})),
            (std::vector<std::string>{"pt-BR", "zh-Hans"}));
  EXPECT_TRUE(Bundle::preferredLocalizationsFromArray(locs, {u"ko"}).empty());
  EXPECT_EQ(strs(Bundle::preferredLocalizationsFromArray({u"de"}, {u"German"})), (std::vector<std::string>{"de"}));
}

TEST(BundleLanguages, PreferredLocalizationsEndWithTheDevelopmentRegion) {
  EnvGuard guard;
  ::setenv("LANGUAGE", "de", 1);
  tq::test::TempDir tmp;
  auto bundle = Bundle::bundleWithPath(S(makeApp(tmp.path()).string()));
  EXPECT_EQ(strs(bundle->localizations()), (std::vector<std::string>{"Base", "English", "de", "fr"}));
  EXPECT_EQ(strs(bundle->preferredLocalizations()), (std::vector<std::string>{"de", "English"}));

  ::setenv("LANGUAGE", "ko", 1);
  tq::test::TempDir other;
  auto korean = Bundle::bundleWithPath(S(makeApp(other.path()).string()));
  EXPECT_EQ(strs(korean->preferredLocalizations()), (std::vector<std::string>{"English"}));
}

TEST(BundleResources, UnlocalizedFirstThenLocalizationsInOrder) {
  EnvGuard guard;
  ::setenv("LANG", "de_DE.UTF-8", 1);
  tq::test::TempDir tmp;
  fs::path app = makeApp(tmp.path());
  auto b = Bundle::bundleWithPath(S(app.string()));
  fs::path res = app / "Contents/Resources";
  EXPECT_EQ(b->pathForResource(u"shared", u"txt"), S((res / "shared.txt").string()));
  EXPECT_EQ(b->pathForResource(u"only-de", u"txt"), S((res / "de.lproj/only-de.txt").string()));
  EXPECT_EQ(b->pathForResource(u"only-en", u"txt"), S((res / "English.lproj/only-en.txt").string()));
  EXPECT_EQ(b->pathForResource(u"Main", u"xib"), S((res / "Base.lproj/Main.xib").string()));
  EXPECT_EQ(b->pathForResource(u"only-de.txt", String()), S((res / "de.lproj/only-de.txt").string()));
  EXPECT_EQ(b->pathForResource(u"deep", u"txt", u"sub"), S((res / "de.lproj/sub/deep.txt").string()));
  EXPECT_EQ(b->pathForResource(u"only-de", u"txt", String(), u"fr"), S((res / "fr.lproj/only-de.txt").string()));
  EXPECT_TRUE(b->pathForResource(u"only-en", u"txt", String(), u"fr").isNil());
  EXPECT_TRUE(b->pathForResource(u"absent", u"txt").isNil());
  EXPECT_TRUE(b->pathForResource(String(), u"txt").isNil());
  EXPECT_EQ(b->pathForImageResource(u"icon"), S((res / "icon.png").string()));
  EXPECT_EQ(b->pathForImageResource(u"icon.png"), S((res / "icon.png").string()));
  EXPECT_TRUE(b->pathForImageResource(u"shared").isNil());
}

TEST(BundleStrings, TranslationsFallBackAndBrokenTablesCountAsAbsent) {
  EnvGuard guard;
  ::setenv("LANGUAGE", "fr:de", 1);  // fr's table does not parse
  tq::test::TempDir tmp;
  auto b = Bundle::bundleWithPath(S(makeApp(tmp.path()).string()));
  EXPECT_EQ(strs(b->preferredLocalizations()), (std::vector<std::string>{"fr", "de", "English"}));
  EXPECT_EQ(b->localizedStringForKey(u"Hello", String(), String()), String(u"Hallo"));
  EXPECT_EQ(b->localizedStringForKey(u"Open", u"x", u"Localizable"), String(u"\u00d6ffnen"));
  EXPECT_EQ(b->localizedStringForKey(u"Only English", String(), String()), String(u"From English"));
  EXPECT_EQ(b->localizedStringForKey(u"Missing", String::empty(), String()), String(u"Missing"));
  EXPECT_EQ(b->localizedStringForKey(u"Missing", u"Fallback", String()), String(u"Fallback"));
  EXPECT_EQ(b->localizedStringForKey(u"File", String(), u"Menus"), String(u"Ablage"));
  EXPECT_EQ(b->localizedStringForKey(u"File", String(), u"NoSuchTable"), String(u"File"));
  EXPECT_TRUE(b->stringsTable(String(), u"fr").isNil());
  EXPECT_EQ(b->stringsTable(u"Localizable", u"de").count(), 2u);
  // Cached: the table is read once, so a later change on disk is not seen.
  write(fs::path(b->resourcePath().UTF8String()) / "de.lproj/Localizable.strings", "\"Hello\" = \"Servus\";");
  EXPECT_EQ(b->localizedStringForKey(u"Hello", String(), String()), String(u"Hallo"));

  // Several threads at once on a fresh bundle.
  tq::test::TempDir other;
  auto fresh = Bundle::bundleWithPath(S(makeApp(other.path()).string()));
  std::vector<std::thread> threads;
  std::atomic<int> right{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        if (fresh->localizedStringForKey(u"Hello", String(), String()) == String(u"Hallo")) ++right;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(right.load(), 800);
}

TEST(BundleCode, MainBundleAndBundleForClass) {
  auto main = Bundle::mainBundle();
  ASSERT_TRUE(main);
  std::string exe = fs::canonical("/proc/self/exe").string();
  EXPECT_EQ(fs::canonical(main->bundlePath().UTF8String()), fs::path(exe).parent_path());
  EXPECT_FALSE(Bundle::setMainBundlePath(u"/tmp"));  // too late once the main bundle exists
  EXPECT_EQ(Bundle::mainBundle(), main);

  EXPECT_EQ(Bundle::codePathForClass(typeid(LocalClass)), S(exe));
  EXPECT_EQ(Bundle::bundleForClass<LocalClass>(), main);

  // Bundle's own code: in the tqkit shared library, or in this program when linked statically.
  String library = Bundle::codePathForClass(typeid(Bundle));
  ASSERT_FALSE(library.isNil());
  tq::test::TempDir tmp;
  fs::path kit = makeApp(tmp.path());
  if (library != S(exe)) {
    EXPECT_EQ(Bundle::bundleForClass<Bundle>(), main);  // installed outside any bundle
    Bundle::registerBundlePathForLibrary(library, S(kit.string()));
    EXPECT_EQ(Bundle::bundleForClass<Bundle>()->bundlePath(), S(kit.string()));
  }
}

TEST(BundleCorpus, MacFoldersReadAsFlatBundles) {
  TQ_SKIP_WITHOUT_CORPUS();
  auto b = Bundle::bundleWithPath(S((tq::test::corpusDir() / "transmission/macosx").string()));
  ASSERT_TRUE(b);
  EXPECT_EQ(strs(b->localizations()), (std::vector<std::string>{"Base", "de", "en", "ja"}));
  EXPECT_EQ(b->stringsTable(u"Localizable", u"ja").objectForKey(u"%@ of %@").stringValue(), String(u"%1$@ / %2$@"));
  EXPECT_EQ(b->pathForResource(u"PrefsWindow", u"xib"),
            S((tq::test::corpusDir() / "transmission/macosx/Base.lproj/PrefsWindow.xib").string()));
  EXPECT_EQ(b->pathForResource(u"InfoWindow", u"xib", String(), u"de"),
            S((tq::test::corpusDir() / "transmission/macosx/InfoWindow.xib").string()));
}
