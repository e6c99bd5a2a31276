// tqkit demo: the drawing platform: fonts and line heights, measured texts, and a small picture.
#include <cstdio>

#include "cli.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/image.h"
#include "tq/platform/ui/drawing/layout_manager.h"
#include "tq/platform/ui/drawing/string_drawing.h"

namespace {

void runDrawingDemo() {
  const tq::FontRef font = tq::Font::systemFontOfSize(0);
  std::printf("system font: %s, line height %g (ascender %.2f, descender %.2f, leading %.2f)\n",
              font->description().UTF8String().c_str(), tq::LayoutManager().defaultLineHeightForFont(font),
              font->ascender(), font->descender(), font->leading());

  const tq::String text = u"The quick brown fox jumps over the lazy dog";
  tq::TextAttributes attributes;
  attributes.font = font;
  for (double width : {400.0, 150.0, 80.0}) {
    const tq::Size s = tq::sizeOfText(text, attributes, {width, 0});
    std::printf("wrapped in %g points: %g x %g\n", width, s.width, s.height);
  }
  attributes.lineBreakMode = tq::LineBreakMode::ByTruncatingTail;
  const tq::Size truncated = tq::sizeOfText(text, attributes, {150, 0});
  std::printf("truncated to 150 points: %g x %g\n", truncated.width, truncated.height);

  auto context = tq::GraphicsContext::imageContext({160, 40}, true);
  auto recorder = std::make_shared<tq::DrawingRecorder>();
  context->setRecorder(recorder);
  tq::GraphicsContext::setCurrentContext(context);
  tq::Color::lightGrayColor()->set();
  tq::BezierPath::strokeLineFromPoint({10, 28}, {110, 28});
  tq::drawText(text, {0, 0, 150, 20}, attributes);
  tq::GraphicsContext::setCurrentContext(nullptr);
  for (const auto& r : recorder->records()) {
    if (r.kind == tq::DrawingRecord::Kind::StrokeLine) {
      std::printf("stroked %s from (%g, %g) to (%g, %g)\n", r.color->description().UTF8String().c_str(), r.from.x,
                  r.from.y, r.to.x, r.to.y);
    } else if (r.kind == tq::DrawingRecord::Kind::DrawText) {
      std::printf("drew text in (%g, %g, %g, %g), tail truncated\n", r.rect.x, r.rect.y, r.rect.w, r.rect.h);
    }
  }
  auto image = tq::Image::imageWithSurface(context->surface());
  auto copy = image->copyWithZone();
  std::printf("image of the drawing: %g x %g points; its copy is %s and %s\n", image->size().width,
              image->size().height, copy.get() != image.get() ? "a distinct object" : "the same object",
              copy->isEqual(*image) ? "equal in content" : "different");
}

tq::cli::DemoRegistration drawing({60, "Drawing, text and images", runDrawingDemo});

}  // namespace
