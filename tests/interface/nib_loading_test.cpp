// Nib loading: found in the bundle of the owner's code, the returned array alone owns the top-level
// objects, unknown names and a null owner give nothing; the appending form.
#include "tq/interface/nib_loading.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/test_paths.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/model/class_registry.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/window.h"

using namespace tq;

namespace {

// The interface documents of the two bundles (tests/data/loading): a window titled after where it
// is found, a menu and a controller.
std::filesystem::path loadingData() { return test::dataDir() / "loading"; }

// Classes of this program live in the main bundle, named before anything opens it.
const bool mainFolderNamed = (Bundle::setMainBundlePath(String::fromUTF8((loadingData() / "main").string())), true);

// A File's Owner that records its window outlet (not owned, as outlets are).
class Owner : public Object, public NibConnectable {
 public:
  void setOutlet(const String& property, const std::shared_ptr<Object>& destination) override {
    if (property == String(u"window")) window = destination;
  }
  std::weak_ptr<Object> window;
};

Window* windowIn(const std::vector<std::shared_ptr<Object>>& objects) {
  for (const auto& o : objects) {
    if (auto* w = dynamic_cast<Window*>(o.get())) return w;
  }
  return nullptr;
}

}  // namespace

TEST(NibLoading, TheArrayAloneOwnsTheTopLevelObjects) {
  auto owner = std::make_shared<Owner>();
  std::vector<std::weak_ptr<Object>> watched;
  std::weak_ptr<Object> field;
  {
    std::vector<std::shared_ptr<Object>> objects = loadNibWithName(u"Main", owner);
    ASSERT_EQ(objects.size(), 3u);
    EXPECT_TRUE(dynamic_cast<Window*>(objects[0].get()));
    EXPECT_TRUE(dynamic_cast<Menu*>(objects[1].get()));
    EXPECT_TRUE(dynamic_cast<GenericObject*>(objects[2].get()));
    EXPECT_EQ(windowIn(objects)->title(), String(u"From xib"));
    EXPECT_EQ(owner->window.lock(), objects[0]);
    field = windowIn(objects)->contentView()->subviews().at(0);
    for (const auto& o : objects) {
      EXPECT_EQ(o.use_count(), 1) << o->className().UTF8String();
      watched.push_back(o);
    }
  }
  for (const auto& w : watched) EXPECT_TRUE(w.expired());
  EXPECT_TRUE(field.expired());
  EXPECT_TRUE(owner->window.expired());
}

TEST(NibLoading, NibFilesAndFoldersComeBeforeInterfaceDocuments) {
  auto owner = std::make_shared<Owner>();
  EXPECT_EQ(windowIn(loadNibWithName(u"Legacy", owner))->title(), String(u"From nib file"));
  EXPECT_EQ(windowIn(loadNibWithName(u"Folder", owner))->title(), String(u"From nib folder"));
  EXPECT_EQ(windowIn(loadNibWithName(u"Both", owner))->title(), String(u"Both: nib"));
}

TEST(NibLoading, UnknownNamesAndANullOwnerGiveNothingAndAppendingAddsInOrder) {
  auto owner = std::make_shared<Owner>();
  EXPECT_TRUE(loadNibWithName(u"Nothing", owner).empty());
  EXPECT_TRUE(loadNibWithName(String(), owner).empty());
  EXPECT_TRUE(loadNibWithName(u"Main", nullptr).empty());
  auto first = std::make_shared<GenericObject>();
  std::vector<std::shared_ptr<Object>> array{first};
  loadNibWithName(u"Main", owner, array);
  ASSERT_EQ(array.size(), 4u);
  EXPECT_EQ(array[0], first);
  EXPECT_TRUE(dynamic_cast<Window*>(array[1].get()));
  EXPECT_TRUE(dynamic_cast<Menu*>(array[2].get()));
  loadNibWithName(u"Nothing", owner, array);
  EXPECT_EQ(array.size(), 4u);
  std::weak_ptr<Object> window = array[1];
  array.clear();
  EXPECT_TRUE(window.expired());
}

TEST(NibLoading, AnOwnerFromAnotherBundleFindsTheNibInItsOwnBundle) {
  // The owner's class lives in the interface library: give that library a bundle of its own. The
  // owner is made inside the library (naming the class here would copy its type information into
  // this program).
  std::shared_ptr<Object> owner = ClassRegistry::shared().makeObject(u"TQTextFieldCell");
  if (!owner) GTEST_SKIP() << "the cell's unit is not linked into this program (static build)";
  const Object& ownerObject = *owner;
  const String library = Bundle::codePathForClass(typeid(ownerObject));
  if (library.isNil() || library == Bundle::codePathForClass(typeid(Owner))) {
    GTEST_SKIP() << "the library is linked into the test program (static build)";
  }
  Bundle::registerBundlePathForLibrary(library, String::fromUTF8((loadingData() / "library").string()));
  EXPECT_EQ(windowIn(loadNibWithName(u"Main", owner))->title(), String(u"From the library's bundle"));
  // The program's own owner still finds the main bundle's nib.
  EXPECT_EQ(windowIn(loadNibWithName(u"Main", std::make_shared<Owner>()))->title(), String(u"From xib"));
}
