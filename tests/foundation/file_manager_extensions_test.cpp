// Path helpers on real folder trees in a temporary directory, and on a counting file manager.
#include "tq/foundation/file_manager_extensions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "support/test_paths.h"

namespace fs = std::filesystem;
using tq::Array;
using tq::Dictionary;
using tq::FileManager;
using tq::String;
using tq::Value;

namespace {

String S(const std::string& s) { return String::fromUTF8(s); }

void touch(const fs::path& p) { std::ofstream(p) << "x"; }

// Counts existence tests and pretends the names in `present` exist (nothing on disk).
class FakeManager : public FileManager {
 public:
  std::set<std::string> present;
  int existenceTests = 0;
  bool fileExistsAtPath(const String& path) override {
    ++existenceTests;
    return present.count(path.UTF8String()) != 0;
  }
};

std::vector<std::string> names(const Array& a) {
  std::vector<std::string> out;
  for (const String& s : a.strings()) out.push_back(s.UTF8String());
  return out;
}

}  // namespace

TEST(CreateDirectories, CreatesMissingLevelsTopDownWithAttributes) {
  tq::test::TempDir tmp;
  fs::create_directory(tmp.path() / "a");
  String path = S((tmp.path() / "a/b/c").string());
  Dictionary attributes{{tq::NSFilePosixPermissions, 0750}};
  EXPECT_TRUE(tq::createDirectoriesAtPath(FileManager::defaultManager(), path, attributes));
  EXPECT_TRUE(fs::is_directory(tmp.path() / "a/b/c"));
  struct stat st;
  ASSERT_EQ(::stat((tmp.path() / "a/b").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0750u);
  ASSERT_EQ(::stat((tmp.path() / "a/b/c").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0750u);
  // The existing level keeps its own mode.
  ASSERT_EQ(::stat((tmp.path() / "a").c_str(), &st), 0);
  EXPECT_NE(st.st_mode & 07777, 0750u);

  // An existing full path: nothing created, true.
  struct NoCreate : FileManager {
    int creations = 0;
    bool createDirectoryAtPath(const String&, const Dictionary&) override { return ++creations, false; }
  } noCreate;
  EXPECT_TRUE(tq::createDirectoriesAtPath(noCreate, path, Dictionary()));
  EXPECT_EQ(noCreate.creations, 0);
  EXPECT_TRUE(tq::createDirectoriesAtPath(FileManager::defaultManager(), String::empty(), Dictionary()));
}

TEST(CreateDirectories, FileInTheWayFailsAtTheNextLevelAndKeepsEarlierLevels) {
  tq::test::TempDir tmp;
  fs::create_directories(tmp.path() / "p");
  touch(tmp.path() / "p/file");
  EXPECT_FALSE(tq::createDirectoriesAtPath(FileManager::defaultManager(), S((tmp.path() / "p/file/x/y").string()),
                                           Dictionary()));
  EXPECT_FALSE(fs::exists(tmp.path() / "p/file/x"));

  // A level that cannot be made stops the walk at once; the levels made before stay.
  struct RefuseX : FileManager {
    std::vector<std::string> attempts;
    bool createDirectoryAtPath(const String& p, const Dictionary& a) override {
      attempts.push_back(p.UTF8String());
      if (p.lastPathComponent() == String(u"x")) return false;
      return FileManager::createDirectoryAtPath(p, a);
    }
  } refuse;
  EXPECT_FALSE(tq::createDirectoriesAtPath(refuse, S((tmp.path() / "q/r/x/s").string()), Dictionary()));
  EXPECT_TRUE(fs::is_directory(tmp.path() / "q/r"));
  EXPECT_EQ(refuse.attempts.size(), 3u);
}

TEST(UniqueName, NumbersBeforeTheLastExtensionInTheSameFolder) {
  FakeManager m;
  EXPECT_EQ(tq::uniqueNameForFile(m, u"/d/free.txt"), String(u"/d/free.txt"));
  m.present = {"/d/x.txt", "/d/x 02.txt"};
  EXPECT_EQ(tq::uniqueNameForFile(m, u"/d/x.txt"), String(u"/d/x 03.txt"));
  m.present = {"/d/Notes"};
  EXPECT_EQ(tq::uniqueNameForFile(m, u"/d/Notes"), String(u"/d/Notes 02"));
  m.present = {"/d/backup.tar.gz"};
  EXPECT_EQ(tq::uniqueNameForFile(m, u"/d/backup.tar.gz"), String(u"/d/backup.tar 02.gz"));
  m.present = {"/d/Report 02.txt"};
  EXPECT_EQ(tq::uniqueNameForFile(m, u"/d/Report 02.txt"), String(u"/d/Report 02 02.txt"));
  // Past 99 without a limit: the 100th candidate is "x 100.txt".
  m.present = {"/d/x.txt"};
  for (int i = 2; i <= 99; ++i) m.present.insert("/d/x " + std::string(i < 10 ? "0" : "") + std::to_string(i) + ".txt");
  EXPECT_EQ(tq::uniqueNameForFile(m, u"/d/x.txt"), String(u"/d/x 100.txt"));
}

TEST(UniqueNames, BatchAgainstFolderAndEarlierResults) {
  FakeManager m;
  EXPECT_EQ(names(tq::uniqueNamesForFileNames(m, Array{u"a.txt", u"a.txt", u"a.txt"}, u"/e")),
            (std::vector<std::string>{"a.txt", "a 02.txt", "a 03.txt"}));
  m.present = {"/e/a.txt", "/e/a 03.txt", "/e/b"};
  EXPECT_EQ(names(tq::uniqueNamesForFileNames(m, Array{u"a.txt", u"b", u"a 02.txt", u"a.txt", u"c"}, u"/e")),
            (std::vector<std::string>{"a 02.txt", "b 02", "a 02 02.txt", "a 04.txt", "c"}));
  // A later plain name equal to an earlier numbered result is itself numbered.
  m.present.clear();
  EXPECT_EQ(names(tq::uniqueNamesForFileNames(m, Array{u"a 02.txt", u"a.txt", u"a.txt"}, u"/e")),
            (std::vector<std::string>{"a 02.txt", "a.txt", "a 03.txt"}));
  EXPECT_EQ(tq::uniqueNamesForFileNames(m, Array::empty(), u"/e").count(), 0u);
}

TEST(UniqueNames, OneExistenceTestPerNameForManyCopies) {
  FakeManager m;
  std::vector<Value> many(3000, Value(u"same.dat"));
  Array result = tq::uniqueNamesForFileNames(m, Array(many), u"/f");
  ASSERT_EQ(result.count(), 3000u);
  EXPECT_EQ(result[0].stringValue(), String(u"same.dat"));
  EXPECT_EQ(result[1].stringValue(), String(u"same 02.dat"));
  EXPECT_EQ(result[2999].stringValue(), String(u"same 3000.dat"));
  std::set<String> unique;
  for (const Value& v : result) unique.insert(v.stringValue());
  EXPECT_EQ(unique.size(), 3000u);
  EXPECT_EQ(m.existenceTests, 3000);
}

// On disk any kind of object counts: a folder named like a file takes its number.
TEST(UniqueNames, RealFolderIsConsulted) {
  tq::test::TempDir tmp;
  touch(tmp.path() / "photo.jpg");
  fs::create_directory(tmp.path() / "photo 02.jpg");
  EXPECT_EQ(tq::uniqueNameForFile(FileManager::defaultManager(), S((tmp.path() / "photo.jpg").string())),
            S((tmp.path() / "photo 03.jpg").string()));
  Array result = tq::uniqueNamesForFileNames(FileManager::defaultManager(), Array{u"photo.jpg", u"photo.jpg"}, S(tmp.str()));
  EXPECT_EQ(names(result), (std::vector<std::string>{"photo 03.jpg", "photo 04.jpg"}));
}

// A receiver that must not be asked: hiding and listing work through the default manager.
class UntouchableManager : public FileManager {
 public:
  int calls = 0;
  Dictionary fileAttributesAtPath(const String&, bool) override { return ++calls, Dictionary(); }
  bool changeFileAttributes(const Dictionary&, const String&) override { return ++calls, false; }
  Array directoryContentsAtPath(const String&) override { return ++calls, Array(); }
};

TEST(HideFileExtension, StoredAsExtendedAttributeAndReadBack) {
  tq::test::TempDir tmp;
  fs::path file = tmp.path() / "Letter.txt";
  touch(file);
  if (::setxattr(file.c_str(), "user.probe", "1", 1, 0) != 0) GTEST_SKIP() << "no user extended attributes here";
  auto& m = FileManager::defaultManager();
  UntouchableManager receiver;
  String path = S(file.string());
  EXPECT_FALSE(m.attributesOfItemAtPath(path).objectForKey(tq::NSFileExtensionHidden).boolValue());
  auto before = m.attributesOfItemAtPath(path);
  tq::hideFileExtension(receiver, true, path);
  auto after = m.attributesOfItemAtPath(path);
  EXPECT_TRUE(after.objectForKey(tq::NSFileExtensionHidden).boolValue());
  char value[4] = {};
  EXPECT_EQ(::getxattr(file.c_str(), tq::kExtensionHiddenAttribute, value, sizeof value), 1);
  // Writing the whole dictionary back leaves the rest as it was.
  EXPECT_EQ(after.objectForKey(tq::NSFileModificationDate), before.objectForKey(tq::NSFileModificationDate));
  EXPECT_EQ(after.objectForKey(tq::NSFilePosixPermissions), before.objectForKey(tq::NSFilePosixPermissions));
  tq::hideFileExtension(receiver, false, path);
  EXPECT_FALSE(m.attributesOfItemAtPath(path).objectForKey(tq::NSFileExtensionHidden).boolValue());
  // A missing item: nothing happens, nothing is reported, nothing is created.
  tq::hideFileExtension(receiver, true, S((tmp.path() / "missing").string()));
  EXPECT_FALSE(fs::exists(tmp.path() / "missing"));
  EXPECT_EQ(receiver.calls, 0);
}

TEST(FilesStartingWithPath, CaseSensitivePrefixOneLevel) {
  tq::test::TempDir tmp;
  for (const char* n : {"Report.txt", "Report 02.txt", "report.txt", "Other"}) touch(tmp.path() / n);
  fs::create_directory(tmp.path() / "Reports");
  touch(tmp.path() / "Reports/Report inner.txt");
  auto& m = FileManager::defaultManager();
  UntouchableManager receiver;
  Array found = tq::filesStartingWithPath(receiver, S((tmp.path() / "Report").string()));
  std::set<std::string> got;
  for (const String& s : found.strings()) got.insert(s.UTF8String());
  std::string base = tmp.str();
  EXPECT_EQ(got, (std::set<std::string>{base + "/Report.txt", base + "/Report 02.txt", base + "/Reports"}));
  // Listing order, not sorted: the same order the file manager lists.
  std::vector<std::string> order;
  for (const String& n : m.directoryContentsAtPath(S(base)).strings()) {
    if (n.hasPrefix(u"Report")) order.push_back(base + "/" + n.UTF8String());
  }
  EXPECT_EQ(names(found), order);

  EXPECT_EQ(tq::filesStartingWithPath(m, S(base + "/Reports/")).count(), 0u);
  Array none = tq::filesStartingWithPath(m, S(base + "/nowhere/x"));
  EXPECT_FALSE(none.isNil());
  EXPECT_EQ(none.count(), 0u);
  EXPECT_EQ(receiver.calls, 0);
}

TEST(FileManagerPosix, AttributesAndListing) {
  tq::test::TempDir tmp;
  auto& m = FileManager::defaultManager();
  touch(tmp.path() / "f");
  fs::create_symlink("f", tmp.path() / "link");
  fs::create_symlink("absent", tmp.path() / "dangling");
  bool isDir = true;
  EXPECT_TRUE(m.fileExistsAtPath(S((tmp.path() / "f").string()), &isDir));
  EXPECT_FALSE(isDir);
  EXPECT_TRUE(m.fileExistsAtPath(S(tmp.str()), &isDir));
  EXPECT_TRUE(isDir);
  EXPECT_FALSE(m.fileExistsAtPath(S((tmp.path() / "dangling").string())));
  EXPECT_EQ(m.fileAttributesAtPath(S((tmp.path() / "link").string()), false).objectForKey(tq::NSFileType).stringValue(),
            tq::NSFileTypeSymbolicLink);
  auto followed = m.fileAttributesAtPath(S((tmp.path() / "link").string()), true);
  EXPECT_EQ(followed.objectForKey(tq::NSFileType).stringValue(), tq::NSFileTypeRegular);
  EXPECT_EQ(followed.objectForKey(tq::NSFileSize).integerValue(), 1);
  EXPECT_TRUE(m.fileAttributesAtPath(S((tmp.path() / "none").string()), false).isNil());
  EXPECT_TRUE(m.directoryContentsAtPath(S((tmp.path() / "none").string())).isNil());
  EXPECT_EQ(m.directoryContentsAtPath(S(tmp.str())).count(), 3u);
  EXPECT_FALSE(m.createDirectoryAtPath(S((tmp.path() / "none/deeper").string()), Dictionary()));
}

// Linux names are bytes: a name that is not UTF-8 is a String in which each stray byte B is the lone
// surrogate U+DC00 + B. How such names list, and that they are found again, is checked on `tqkit
// bundle resources` and `tqkit unique-names` against ls; here the other calls that take them, checked
// against the kernel: the file's own inode and contents, read through the raw byte name.
TEST(FileManagerPosix, NamesThatAreNotUtf8OpenTheirOwnFiles) {
  tq::test::TempDir tmp;
  for (const std::string& name : {"Report\xFF", "Report\xFE", "Report caf\xE9.txt", "Report\xE2\x82.txt"}) {
    std::ofstream(tmp.path() / name) << name;
  }
  touch(tmp.path() / "Report.txt");
  FileManager& m = FileManager::defaultManager();
  Array paths = tq::filesStartingWithPath(m, S(tmp.str() + "/Report"));
  ASSERT_EQ(paths.count(), 5u);
  std::set<ino_t> inodes;
  for (const String& path : paths.strings()) {
    std::string bytes = FileManager::fileSystemRepresentation(path);
    struct stat st;
    ASSERT_EQ(::stat(bytes.c_str(), &st), 0) << bytes;
    inodes.insert(st.st_ino);
    EXPECT_EQ(m.fileAttributesAtPath(path, false).objectForKey(tq::NSFileSystemFileNumber).integerValue(),
              static_cast<long long>(st.st_ino));
    std::string name = bytes.substr(bytes.rfind('/') + 1);
    if (name != "Report.txt") EXPECT_EQ(tq::test::readAll(bytes), name);  // each file holds its own raw name
  }
  EXPECT_EQ(inodes.size(), 5u);  // five names, five files: no two names collapse into one
  EXPECT_TRUE(m.createDirectoryAtPath(S(tmp.str()).stringByAppendingPathComponent(String(u"dir\xDCFF")), Dictionary()));
  EXPECT_TRUE(fs::is_directory(tmp.path() / "dir\xFF"));
}
