// Images: loading the file formats, sizes from recorded resolutions, drawing (flipped and not, parts,
// opacity, interpolation) and deep copies.
#include "tq/platform/ui/drawing/image.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/ui/pixels.h"
#include "support/test_paths.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"

using namespace tq;
using tq::test::pixelAt;

namespace {

// A 4 x 2 pixel image: top row red, bottom row blue.
GdkPixbuf* twoRowPixbuf() {
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 4, 2);
  guchar* pixels = gdk_pixbuf_get_pixels(pixbuf);
  const int stride = gdk_pixbuf_get_rowstride(pixbuf);
  for (int x = 0; x < 4; ++x) {
    guchar* top = pixels + x * 3;
    guchar* bottom = pixels + stride + x * 3;
    top[0] = 255, top[1] = 0, top[2] = 0;
    bottom[0] = 0, bottom[1] = 0, bottom[2] = 255;
  }
  return pixbuf;
}

std::string save(const test::TempDir& dir, const char* name, const char* type, const char* dpi) {
  GdkPixbuf* pixbuf = twoRowPixbuf();
  const std::string path = dir.str() + "/" + name;
  GError* error = nullptr;
  gboolean ok = dpi ? gdk_pixbuf_save(pixbuf, path.c_str(), type, &error, "x-dpi", dpi, "y-dpi", dpi, nullptr)
                    : gdk_pixbuf_save(pixbuf, path.c_str(), type, &error, nullptr);
  g_clear_error(&error);
  g_object_unref(pixbuf);
  EXPECT_TRUE(ok) << name;
  return path;
}

ImageRef twoRowImage() {
  GdkPixbuf* pixbuf = twoRowPixbuf();
  GError* error = nullptr;
  gchar* buffer = nullptr;
  gsize length = 0;
  gdk_pixbuf_save_to_buffer(pixbuf, &buffer, &length, "png", &error, nullptr);
  g_object_unref(pixbuf);
  ImageRef image = Image::imageWithData(Data::withBytes(buffer, length));
  g_free(buffer);
  return image;
}

bool isRed(test::Pixel p) { return p.a == 255 && p.r == 255 && p.g == 0 && p.b == 0; }
bool isBlue(test::Pixel p) { return p.a == 255 && p.r == 0 && p.g == 0 && p.b == 255; }

}  // namespace

TEST(Image, LoadsEachFormatWithItsSizeInPointsFromTheResolution) {
  test::TempDir dir;
  struct Case {
    std::string path;
    Size points;
    bool lossy = false;
  };
  std::vector<Case> cases = {
      {save(dir, "a.png", "png", "144"), {2, 1}},
      {save(dir, "plain.png", "png", nullptr), {4, 2}},
      {save(dir, "a.jpg", "jpeg", "144"), {2, 1}, true},
      {save(dir, "a.tiff", "tiff", "36"), {8, 4}},
      {save(dir, "plain.bmp", "bmp", nullptr), {4, 2}},
  };
  // BMP records pixels per metre in its info header: 5669 per metre is 144 dpi.
  std::string bmp = test::readAll(cases.back().path);
  ASSERT_GE(bmp.size(), 54u);
  for (int offset : {38, 42}) {
    bmp[offset] = char(5669 & 0xFF), bmp[offset + 1] = char(5669 >> 8), bmp[offset + 2] = 0, bmp[offset + 3] = 0;
  }
  test::write(dir.path() / "dense.bmp", bmp);
  cases.push_back({dir.str() + "/dense.bmp", {2, 1}});
  // A 1 x 1 GIF of one red pixel.
  test::write(dir.path() / "a.gif", std::string("GIF89a\1\0\1\0\x80\0\0\xFF\0\0\0\0\0\x2C\0\0\0\0\1\0\1\0\0\2\2\x44\1\0\x3B", 35));
  cases.push_back({dir.str() + "/a.gif", {1, 1}});

  for (const auto& c : cases) {
    ImageRef image = Image::imageWithContentsOfFile(String::fromUTF8(c.path));
    ASSERT_NE(image, nullptr) << c.path;
    EXPECT_NEAR(image->size().width, c.points.width, 0.02) << c.path;
    EXPECT_NEAR(image->size().height, c.points.height, 0.02) << c.path;
    cairo_surface_flush(image->surface());
    const uint32_t topLeft = *reinterpret_cast<const uint32_t*>(cairo_image_surface_get_data(image->surface()));
    if (!c.lossy) EXPECT_EQ(topLeft, 0xFFFF0000u) << c.path << ": top left is red";  // JPEG blends the rows
  }
}

namespace {

uint32_t crc32(const std::vector<uint8_t>& bytes, std::size_t from) {
  uint32_t c = 0xFFFFFFFFu;
  for (std::size_t i = from; i < bytes.size(); ++i) {
    c ^= bytes[i];
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return ~c;
}

void put32(std::vector<uint8_t>& out, uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(uint8_t(v >> shift));
}

// A PNG whose header announces width x height pixels, with no pixel data behind it.
std::vector<uint8_t> pngHeader(uint32_t width, uint32_t height) {
  std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  put32(png, 13);
  const std::size_t type = png.size();
  png.insert(png.end(), {'I', 'H', 'D', 'R'});
  put32(png, width);
  put32(png, height);
  png.insert(png.end(), {8, 6, 0, 0, 0});
  put32(png, crc32(png, type));
  return png;
}

}  // namespace

TEST(Image, UnreadableInputGivesNil) {
  const auto huge = pngHeader(30000, 30000);
  EXPECT_EQ(Image::imageWithData(Data::withBytes(huge.data(), huge.size())), nullptr) << "too large to hold";
  test::TempDir dir;
  test::write(dir.path() / "junk.png", "not an image");
  EXPECT_EQ(Image::imageWithContentsOfFile(String::fromUTF8(dir.str() + "/junk.png")), nullptr);
  EXPECT_EQ(Image::imageWithContentsOfFile(String::fromUTF8(dir.str() + "/missing.png")), nullptr);
  EXPECT_EQ(Image::imageWithContentsOfFile(String()), nullptr);
  EXPECT_EQ(Image::imageWithData(Data()), nullptr);
  EXPECT_EQ(Image::imageWithSize({0, 5}), nullptr);
}

TEST(Image, PlainDrawingIsUprightInUnflippedSpaceAndDrawsParts) {
  ImageRef image = twoRowImage();
  test::CurrentPicture current({20, 20}, false);
  auto& ctx = *current.context;
  image->drawAtPoint({0, 0}, {}, NSCompositeSourceOver, 1.0);
  EXPECT_TRUE(isRed(pixelAt(ctx, 0, 18))) << "top row above";
  EXPECT_TRUE(isBlue(pixelAt(ctx, 3, 19)));
  EXPECT_EQ(pixelAt(ctx, 4, 19).a, 0) << "drawn at its own size";

  // The upper half of the image (image coordinates have y upwards) is the red row.
  image->drawInRect({10, 10, 4, 4}, {0, 1, 4, 1}, NSCompositeSourceOver, 1.0);
  for (int y = 6; y < 10; ++y) EXPECT_TRUE(isRed(pixelAt(ctx, 12, y))) << y;
  image->drawAtPoint({0, 5}, {0, 0, 4, 1}, NSCompositeSourceOver, 1.0);
  EXPECT_TRUE(isBlue(pixelAt(ctx, 1, 14)));
  EXPECT_EQ(pixelAt(ctx, 1, 13).a, 0);
}

TEST(Image, OperationAndFractionApply) {
  ImageRef image = twoRowImage();
  test::CurrentPicture current({8, 8});
  auto& ctx = *current.context;
  image->drawInRect({0, 0, 4, 2}, {}, NSCompositeSourceOver, 0.5);
  EXPECT_NEAR(pixelAt(ctx, 1, 1).a, 128, 1);
  EXPECT_NEAR(pixelAt(ctx, 1, 0).b, 128, 1) << "flipped space: the image shows upside down";
  image->drawInRect({0, 0, 4, 2}, {}, NSCompositeClear, 1.0);
  EXPECT_EQ(test::inkedPixels(ctx, 0, 0, 4, 2), 0);
  image->drawInRect({0, 0, 4, 2}, {}, NSCompositeCopy, 0.25);
  EXPECT_NEAR(pixelAt(ctx, 0, 0).a, 64, 1);
}

TEST(Image, InterpolationFollowsTheContext) {
  // Two pixels, black and white, stretched across 20 points.
  auto source = Image::imageWithSize({2, 1});
  {
    auto g = source->graphicsContext();
    g->setFillColor(Color::blackColor());
    g->fillRect({0, 0, 1, 1}, NSCompositeCopy);
    g->setFillColor(Color::whiteColor());
    g->fillRect({1, 0, 1, 1}, NSCompositeCopy);
  }
  auto row = [&](ImageInterpolation interpolation) {
    test::CurrentPicture current({20, 1});
    auto recorder = std::make_shared<DrawingRecorder>();
    current.context->setRecorder(recorder);
    const ImageInterpolation saved = current.context->imageInterpolation();
    current.context->setImageInterpolation(interpolation);
    source->drawInRect({0, 0, 20, 1}, {}, NSCompositeCopy, 1.0);
    current.context->setImageInterpolation(saved);
    EXPECT_EQ(current.context->imageInterpolation(), NSImageInterpolationDefault);
    EXPECT_EQ(recorder->records().at(0).interpolation, interpolation);
    std::vector<int> reds;
    for (int x = 0; x < 20; ++x) reds.push_back(pixelAt(*current.context, x, 0).r);
    return reds;
  };
  const auto sharp = row(NSImageInterpolationNone);
  for (int x = 0; x < 20; ++x) EXPECT_EQ(sharp[x], x < 10 ? 0 : 255) << x;
  const auto smooth = row(NSImageInterpolationHigh);
  int between = 0;
  for (int v : smooth) between += v > 10 && v < 245;
  EXPECT_GE(between, 2) << "a high quality filter blends the edge";
}

TEST(Image, CopiesAreDistinctWithEqualContent) {
  ImageRef original = twoRowImage();
  original->setSize({8, 4});
  ImageRef copy = original->copyWithZone();
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy.get(), original.get());
  EXPECT_NE(copy->surface(), original->surface());
  EXPECT_TRUE(copy->isEqual(*original));
  EXPECT_EQ(copy->size(), (Size{8, 4}));

  if (auto g = copy->graphicsContext()) g->setFillColor(Color::greenColor()), g->fillRect({0, 0, 1, 1}, NSCompositeCopy);
  EXPECT_FALSE(copy->isEqual(*original)) << "the copy has pixels of its own";
  ImageRef again = original->copyWithZone();
  std::weak_ptr<Image> watch = original;
  original.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(again->pixelsWide(), 4);
  EXPECT_TRUE(isRed([&] {
    test::CurrentPicture current({8, 4});
    again->drawInRect({0, 0, 8, 4}, {}, NSCompositeCopy, 1);
    return pixelAt(*current.context, 0, 3);
  }()));
}
