// Image helpers: loading by bundle without a cache, the bitmap file type table, flipped drawing that
// leaves the graphics state as found; and the check-box test of buttons.
#include "tq/interface/image_extensions.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/ui/pixels.h"
#include "support/test_paths.h"
#include "tq/interface/button_extensions.h"
#include "tq/platform/ui/model/color.h"
#include "tq/platform/ui/model/text_field_cell.h"

using namespace tq;
using tq::test::pixelAt;

namespace {

// Classes of this program live in the main bundle; name that bundle before anything opens it.
const test::TempDir mainFolder;
const bool mainFolderNamed = (Bundle::setMainBundlePath(String::fromUTF8(mainFolder.str())), true);

void writePNG(const std::filesystem::path& path) {
  std::filesystem::create_directories(path.parent_path());
  ImageRef image = test::halves(4, 2);
  GraphicsContextRef context = image->graphicsContext();
  ASSERT_TRUE(context->writeToPNG(String::fromUTF8(path.string())));
}

bool isRed(const test::Pixel& p) { return p.a == 255 && p.r > 200 && p.b < 50; }
bool isBlue(const test::Pixel& p) { return p.a == 255 && p.b > 200 && p.r < 50; }

}  // namespace

// The table: tiff 0, bmp 1, gif 2, jpg 3, png 4, jp2 5; other extensions (case and spelling
// exactly) fall back to TIFF, and each type maps back to its one constant extension.
TEST(BitmapFileTypes, ExtensionsMapExactlyAndBack) {
  const char16_t* extensions[] = {u"tiff", u"bmp", u"gif", u"jpg", u"png", u"jp2"};
  for (BitmapImageFileType t = 0; t <= 5; ++t) {
    EXPECT_EQ(bitmapImageFileTypeFromExtension(extensions[t]), t);
    const String e = extensionFromBitmapImageFileType(t);
    EXPECT_EQ(e, String(extensions[t]));
  }
  for (const String& other : {String(u"PNG"), String(u"jpeg"), String(u"tif"), String(u""), String(u"png "), String()}) {
    EXPECT_EQ(bitmapImageFileTypeFromExtension(other), NSTIFFFileType) << other.UTF8String();
  }
  EXPECT_TRUE(extensionFromBitmapImageFileType(6).isNil());
  EXPECT_TRUE(extensionFromBitmapImageFileType(static_cast<BitmapImageFileType>(-1)).isNil());
}

TEST(ImageNamedFromBundle, ReadsAFreshImageEveryCall) {
  test::TempDir dir;
  writePNG(dir.path() / "Resources" / "icon.png");
  std::ofstream(dir.path() / "Resources" / "broken.png") << "not an image";
  auto bundle = Bundle::bundleWithPath(String::fromUTF8(dir.str()));
  ASSERT_TRUE(bundle);

  ImageRef a = imageNamedFromBundle(u"icon", bundle);
  ImageRef b = imageNamedFromBundle(u"icon", bundle);
  ASSERT_TRUE(a && b);
  EXPECT_NE(a.get(), b.get());
  EXPECT_TRUE(a->isEqual(*b));
  EXPECT_EQ(a->size(), (Size{4, 2}));
  EXPECT_TRUE(imageNamedFromBundle(u"icon.png", bundle));

  EXPECT_FALSE(imageNamedFromBundle(u"missing", bundle));
  EXPECT_FALSE(imageNamedFromBundle(u"broken", bundle));
  EXPECT_FALSE(imageNamedFromBundle(u"icon", nullptr));
}

// A class object that records the names and bundles it was asked for and halves what it loads.
struct HalfSizeImages : ImageClassMethods {
  mutable std::vector<std::pair<std::string, std::string>> asked;
  ImageRef imageNamedFromBundle(const String& name, const std::shared_ptr<Bundle>& bundle) const override {
    asked.emplace_back(name.UTF8String(), bundle ? bundle->bundlePath().UTF8String() : std::string());
    ImageRef image = ImageClassMethods::imageNamedFromBundle(name, bundle);
    if (image) image->setSize({image->size().width / 2, image->size().height / 2});
    return image;
  }
};

TEST(ImageNamedFromBundle, AnOverrideOfTheBundleFormChangesTheClassAndIdentifierForms) {
  test::TempDir dir;
  writePNG(dir.path() / "Resources" / "seal.png");
  std::ofstream(dir.path() / "Info.plist")
      << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
         "<key>CFBundleIdentifier</key><string>org.tqkit.test.halves</string></dict></plist>\n";
  struct LocalOwner : Object {};
  EXPECT_FALSE(imageNamedFromBundleWithIdentifier(u"seal", u"org.tqkit.test.halves")) << "found only in open bundles";
  auto bundle = Bundle::bundleWithPath(String::fromUTF8(dir.str()));
  ASSERT_TRUE(bundle);
  writePNG(mainFolder.path() / "owner-seal.png");

  const HalfSizeImages halves;
  ImageRef byIdentifier = halves.imageNamedFromBundleWithIdentifier(u"seal", u"org.tqkit.test.halves");
  ImageRef byClass = halves.imageNamedFromBundleWithClass<LocalOwner>(u"owner-seal");
  ASSERT_TRUE(byIdentifier && byClass);
  // The file is 4 x 2 pixels; every form went through the override.
  EXPECT_EQ(byIdentifier->size(), (Size{2, 1}));
  EXPECT_EQ(byClass->size(), (Size{2, 1}));
  ASSERT_EQ(halves.asked.size(), 2u);
  EXPECT_EQ(halves.asked[0].first, "seal");
  EXPECT_EQ(halves.asked[0].second, bundle->bundlePath().UTF8String());
  EXPECT_EQ(halves.asked[1].first, "owner-seal");
  // An identifier no open bundle has reaches the override with no bundle, which answers nil.
  EXPECT_FALSE(halves.imageNamedFromBundleWithIdentifier(u"seal", u"org.tqkit.test.nobody"));
  EXPECT_EQ(halves.asked.back().second, "");
  // The image class itself is unchanged, and finds by class in the main bundle.
  EXPECT_EQ(imageNamedFromBundleWithIdentifier(u"seal", u"org.tqkit.test.halves")->size(), (Size{4, 2}));
  EXPECT_EQ(imageNamedFromBundleWithClass<LocalOwner>(u"owner-seal")->size(), (Size{4, 2}));
  EXPECT_FALSE(imageNamedFromBundleWithClass<LocalOwner>(u"nothing-here"));
  EXPECT_FALSE(imageNamedFromBundleWithIdentifier(u"seal", String()));
}

TEST(DrawFlipped, InRectShowsTheImageUprightInAFlippedSpaceAndRestoresTheState) {
  test::CurrentPicture current({64, 64}, /*flipped=*/true);
  const GraphicsContextRef& context = current.context;
  context->clipToRect({5, 5, 50, 50});
  AffineTransform shift;
  shift.translateXBy(0.5, 0);
  context->concatTransform(shift);
  context->setFillColor(Color::greenColor());
  context->setImageInterpolation(NSImageInterpolationNone);  // whole image pixels, no blending
  const AffineTransform transformBefore = context->currentTransform();
  const Rect clipBefore = context->clipBoundingBox();

  drawFlippedInRect(*test::halves(4, 2), {9.5, 20, 32, 16}, NSCompositeSourceOver, 1.0);

  EXPECT_EQ(context->currentTransform(), transformBefore);
  EXPECT_EQ(context->clipBoundingBox(), clipBefore);
  EXPECT_TRUE(context->fillColor()->isEqual(*Color::greenColor()));
  EXPECT_EQ(context->savedStateCount(), 0u);
  EXPECT_EQ(GraphicsContext::currentContext(), context);

  // Device rectangle (10, 20, 32, 16): red top half, blue bottom half, nothing around it.
  EXPECT_TRUE(isRed(pixelAt(*context, 10, 20)) && isRed(pixelAt(*context, 41, 26)));
  EXPECT_TRUE(isBlue(pixelAt(*context, 10, 29)) && isBlue(pixelAt(*context, 41, 35)));
  EXPECT_EQ(test::inkedPixels(*context, 0, 0, 64, 64), 32 * 16);
  EXPECT_EQ(test::inkedPixels(*context, 10, 20, 42, 36), 32 * 16);
}

// In an unflipped space the image shows upside down; at a point it takes its own size and the
// opacity given. Without a current context nothing is drawn and nothing breaks.
TEST(DrawFlipped, UnflippedSpacesAtPointsAndNoContext) {
  drawFlippedInRect(*test::halves(4, 2), {0, 0, 4, 4}, NSCompositeSourceOver, 1.0);
  drawFlippedAtPoint(*test::halves(4, 2), {0, 0}, NSCompositeSourceOver, 1.0);
  test::CurrentPicture current({40, 40}, /*flipped=*/false);
  const GraphicsContextRef& context = current.context;
  // User rectangle (0, 0, 8, 8): the bottom left corner; device rows 32..39.
  drawFlippedInRect(*test::halves(4, 2), {0, 0, 8, 8}, NSCompositeSourceOver, 1.0);
  EXPECT_TRUE(isBlue(pixelAt(*context, 2, 32)));
  EXPECT_TRUE(isRed(pixelAt(*context, 2, 39)));
  // User point (20, 20) is device (20, 20 - 2) at the image's top left; half opaque.
  drawFlippedAtPoint(*test::halves(4, 2), {20, 20}, NSCompositeSourceOver, 0.5);
  EXPECT_EQ(test::inkedPixels(*context, 10, 10, 40, 30), 8);
  EXPECT_NEAR(pixelAt(*context, 20, 18).a, 128, 2);
  EXPECT_GT(pixelAt(*context, 20, 18).b, 100) << "upside down here too";
  EXPECT_GT(pixelAt(*context, 23, 19).r, 100);
  EXPECT_EQ(context->savedStateCount(), 0u);
}

TEST(IsSwitchButton, OnlyCheckBoxes) {
  Button checkBox, push, radio, custom, bare;
  checkBox.setButtonType(ButtonType::Switch);
  radio.setButtonType(ButtonType::Radio);
  custom.setCell(std::make_shared<TextFieldCell>(u"no button type"));
  bare.setCell(nullptr);
  EXPECT_TRUE(isSwitchButton(checkBox));
  for (const Button* other : {&push, &radio, &custom, &bare}) EXPECT_FALSE(isSwitchButton(*other));
  EXPECT_FALSE(isSwitchButton(static_cast<const Button*>(nullptr)));
}
