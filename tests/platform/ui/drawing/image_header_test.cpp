// The header checks in front of the image decoders: files that gdk-pixbuf itself writes pass, and
// headers just past each limit are refused, and then never reach a decoder.
#include "tq/platform/ui/drawing/image_header.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>

#include <vector>

#include "tq/platform/ui/drawing/image.h"

using namespace tq;

namespace {

void putLE32(std::vector<uint8_t>& b, std::size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

// gdk-pixbuf's own BMP writer: a 3 x 2 image.
std::vector<uint8_t> writtenBmp() {
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 3, 2);
  gdk_pixbuf_fill(pixbuf, 0x336699ff);
  gchar* buffer = nullptr;
  gsize length = 0;
  GError* error = nullptr;
  gdk_pixbuf_save_to_buffer(pixbuf, &buffer, &length, "bmp", &error, nullptr);
  g_clear_error(&error);
  g_object_unref(pixbuf);
  std::vector<uint8_t> bytes(buffer, buffer + length);
  g_free(buffer);
  return bytes;
}

// A GIF header with the given logical screen, one 1 x 1 image of a two-colour table, and the trailer.
std::vector<uint8_t> gif(unsigned width, unsigned height) {
  std::vector<uint8_t> b = {'G', 'I', 'F', '8', '9', 'a', uint8_t(width), uint8_t(width >> 8), uint8_t(height),
                            uint8_t(height >> 8), 0x80, 0, 0, 255, 0, 0, 0, 0, 255,
                            ',', 0, 0, 0, 0, 1, 0, 1, 0, 0, 2, 2, 0x44, 0x01, 0, ';'};
  return b;
}

const char* problem(const std::vector<uint8_t>& b) { return imageHeaderProblem(b.data(), b.size()); }

bool decodes(const std::vector<uint8_t>& b) { return Image::imageWithData(Data::withBytes(b.data(), b.size())) != nullptr; }

}  // namespace

TEST(ImageHeader, BmpFieldsAtAndPastTheirLimits) {
  std::vector<uint8_t> bmp = writtenBmp();
  ASSERT_GE(bmp.size(), 54u);
  ASSERT_EQ(bmp[0], 'B');
  EXPECT_EQ(problem(bmp), nullptr);
  EXPECT_TRUE(decodes(bmp));

  // Each field at its limit, then one past it: colours used (a full 8-bit palette), the info
  // header's size (version 5 the largest), the pixel data's offset (the very end of the file).
  const uint32_t end = static_cast<uint32_t>(bmp.size());
  const struct {
    std::size_t at;
    uint32_t value;
    const char* problem;
  } rows[] = {{46, 256, nullptr}, {46, 257, "BMP palette larger than 256 colours"},
              {14, 124, nullptr}, {14, 125, "BMP info header size out of range"},
              {10, end, nullptr}, {10, end + 1, "BMP pixel data beyond the end of the file"}};
  std::vector<uint8_t> b;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    b = bmp;
    putLE32(b, row.at, row.value);
    EXPECT_STREQ(problem(b), row.problem);
    if (row.problem) {
      EXPECT_FALSE(decodes(b)) << "refused before decoding";
    }
  }
  EXPECT_STREQ(problem(std::vector<uint8_t>(bmp.begin(), bmp.begin() + 17)), "BMP header truncated");
  b.assign(bmp.begin(), bmp.begin() + 49);  // an info header that cannot hold its colour count
  putLE32(b, 10, 49);
  EXPECT_STREQ(problem(b), "BMP header truncated");
  b.push_back(0);
  EXPECT_EQ(problem(b), nullptr);
}

TEST(ImageHeader, GifScreenAtAndPastTheLimits) {
  EXPECT_EQ(problem(gif(1, 1)), nullptr);
  EXPECT_TRUE(decodes(gif(1, 1)));
  EXPECT_EQ(problem({'G', 'I', 'F', '8', '9', 'a', 0xFF}), nullptr);  // too short for a screen: the decoder says so
  EXPECT_EQ(problem(gif(32767, 2048)), nullptr);  // 67,106,816 pixels: under 64 Mi
  EXPECT_STREQ(problem(gif(32768, 1)), "GIF logical screen too large");
  EXPECT_STREQ(problem(gif(1, 32768)), "GIF logical screen too large");
  EXPECT_STREQ(problem(gif(8193, 8193)), "GIF logical screen too large");  // 67,125,249 pixels
  EXPECT_FALSE(decodes(gif(8193, 8193)));
}
