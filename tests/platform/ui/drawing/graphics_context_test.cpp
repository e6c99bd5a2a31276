// The graphics context: current-context stack, state save/restore, coordinates, fills, strokes,
// transforms, colours and the drawing recorder, checked on image surfaces.
#include "tq/platform/ui/drawing/graphics_context.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/ui/pixels.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"

using namespace tq;
using tq::test::pixelAt;

TEST(GraphicsContext, CurrentContextIsPerThreadAndStacked) {
  EXPECT_EQ(GraphicsContext::currentContext(), nullptr);
  GraphicsContext::restoreGraphicsState();  // nothing saved: nothing happens
  GraphicsContext::saveGraphicsState();     // no current context: nothing saved

  auto first = GraphicsContext::imageContext({10, 10}, false);
  auto second = GraphicsContext::imageContext({10, 10}, true);
  GraphicsContext::setCurrentContext(first);
  Color::redColor()->set();
  GraphicsContext::saveGraphicsState();
  Color::blueColor()->set();
  EXPECT_TRUE(first->fillColor()->isEqual(*Color::blueColor()));

  GraphicsContext::setCurrentContext(second);
  GraphicsContextRef seenByOtherThread = first;
  std::thread([&] { seenByOtherThread = GraphicsContext::currentContext(); }).join();
  EXPECT_EQ(seenByOtherThread, nullptr);

  GraphicsContext::restoreGraphicsState();
  EXPECT_EQ(GraphicsContext::currentContext(), first) << "restoring makes the saved context current again";
  EXPECT_TRUE(first->fillColor()->isEqual(*Color::redColor()));
  EXPECT_TRUE(first->strokeColor()->isEqual(*Color::redColor()));
  EXPECT_EQ(first->savedStateCount(), 0u);
  GraphicsContext::setCurrentContext(nullptr);
}

TEST(GraphicsContext, RestoreBringsBackTransformClipAndOperationButNotInterpolation) {
  test::CurrentPicture current({100, 80}, true);
  auto& ctx = *current.context;
  AffineTransform shift;
  shift.translateXBy(5, 7);
  ctx.concatTransform(shift);
  ctx.clipToRect({0, 0, 50, 40});
  const AffineTransform transformBefore = ctx.currentTransform();
  const Rect clipBefore = ctx.clipBoundingBox();
  ctx.setImageInterpolation(NSImageInterpolationHigh);

  GraphicsContext::saveGraphicsState();
  AffineTransform flip;
  flip.translateXBy(0, 30);
  flip.scaleXBy(2, -1);
  flip.concat();
  ctx.clipToRect({1, 1, 3, 3});
  ctx.setCompositingOperation(NSCompositeCopy);
  ctx.setImageInterpolation(NSImageInterpolationNone);
  EXPECT_NE(ctx.clipBoundingBox(), clipBefore);
  GraphicsContext::restoreGraphicsState();

  EXPECT_EQ(ctx.currentTransform(), transformBefore);
  EXPECT_EQ(ctx.clipBoundingBox(), clipBefore);
  EXPECT_EQ(ctx.compositingOperation(), NSCompositeSourceOver);
  EXPECT_EQ(ctx.imageInterpolation(), NSImageInterpolationNone) << "interpolation is not graphics state";

  ctx.restoreState();  // unbalanced: ignored, and the context still draws
  Color::whiteColor()->set();
  rectFill({0, 0, 1, 1});
  EXPECT_EQ(pixelAt(ctx, 5, 7).a, 255);
}

TEST(GraphicsContext, UnflippedOriginIsBottomLeftFlippedIsTopLeft) {
  for (bool flipped : {false, true}) {
    test::CurrentPicture current({20, 10}, flipped);
    Color::redColor()->set();
    rectFill({0, 0, 2, 1});
    const int row = flipped ? 0 : 9;
    EXPECT_EQ(pixelAt(*current.context, 1, row).r, 255) << "flipped " << flipped;
    EXPECT_EQ(pixelAt(*current.context, 1, 9 - row).a, 0) << "flipped " << flipped;
    EXPECT_EQ(current.context->userSpaceIsFlipped(), flipped);
  }
}

TEST(GraphicsContext, RectFillCopiesWhileSourceOverBlends) {
  test::CurrentPicture current({10, 10}, true);
  auto& ctx = *current.context;
  Color::blueColor()->set();
  rectFill({0, 0, 10, 10});
  Color::clearColor()->set();
  rectFill({0, 0, 5, 10});
  EXPECT_EQ(pixelAt(ctx, 2, 2).a, 0) << "NSRectFill replaces (Copy), so clear erases";
  Color::colorWithRed(1, 0, 0, 0.5)->set();
  rectFillUsingOperation({5, 0, 5, 10}, NSCompositeSourceOver);
  const auto p = pixelAt(ctx, 7, 7);
  EXPECT_EQ(p.a, 255);
  EXPECT_NEAR(p.r, 128, 1);
  EXPECT_NEAR(p.b, 127, 1);

  // A scaled context draws points, not pixels.
  auto doubled = GraphicsContext::imageContext({10, 10}, true, 2.0);
  ASSERT_EQ(cairo_image_surface_get_width(doubled->surface()), 20);
  doubled->fillRect({1, 1, 1, 1}, NSCompositeCopy);
  EXPECT_EQ(pixelAt(*doubled, 2, 3).a, 255);
  EXPECT_EQ(pixelAt(*doubled, 4, 3).a, 0);
}

TEST(GraphicsContext, StrokedLineCoversItsRowWithButtCaps) {
  test::CurrentPicture current({40, 40}, true);
  auto& ctx = *current.context;
  EXPECT_EQ(BezierPath::defaultLineWidth(), 1.0);
  Color::lightGrayColor()->set();
  BezierPath::strokeLineFromPoint({10, 28.5}, {30, 28.5});
  for (int x = 10; x < 30; ++x) ASSERT_TRUE(pixelAt(ctx, x, 28).a == 255 && pixelAt(ctx, x, 28).r == 170) << x;
  EXPECT_EQ(test::inkedPixels(ctx, 0, 0, 40, 28), 0);
  EXPECT_EQ(test::inkedPixels(ctx, 0, 29, 40, 40), 0);
  EXPECT_EQ(pixelAt(ctx, 9, 28).a, 0);
  EXPECT_EQ(pixelAt(ctx, 30, 28).a, 0);

  // On a whole coordinate the one-point line straddles two rows, half each.
  BezierPath::strokeLineFromPoint({10, 5}, {30, 5});
  EXPECT_NEAR(pixelAt(ctx, 20, 4).a, 128, 2);
  EXPECT_NEAR(pixelAt(ctx, 20, 5).a, 128, 2);
}

TEST(AffineTransform, StepsActOnPointsBeforeWhatWasThere) {
  AffineTransform t;
  t.translateXBy(10, 20);
  t.scaleXBy(2, 3);
  EXPECT_EQ(t.transformPoint({1, 1}), (Point{12, 23})) << "scale first, then translate";
  EXPECT_EQ(t.transformSize({1, 1}), (Size{2, 3}));

  AffineTransform r;
  r.rotateByDegrees(90);
  const Point p = r.transformPoint({1, 0});
  EXPECT_NEAR(p.x, 0, 1e-12);
  EXPECT_NEAR(p.y, 1, 1e-12);

  AffineTransform inverse = t;
  inverse.invert();
  const Point back = inverse.transformPoint(t.transformPoint({3, -4}));
  EXPECT_NEAR(back.x, 3, 1e-12);
  EXPECT_NEAR(back.y, -4, 1e-12);

  AffineTransform appended = t;
  appended.appendTransform(r);  // t, then r
  const Point q = appended.transformPoint({1, 1});
  EXPECT_NEAR(q.x, -23, 1e-9);
  EXPECT_NEAR(q.y, 12, 1e-9);

  AffineTransform singular;
  singular.scaleXBy(0, 1);
  const AffineTransform before = singular;
  singular.invert();
  EXPECT_EQ(singular, before);
}

TEST(AffineTransform, ConcatMovesDrawingAndSetReplaces) {
  test::CurrentPicture current({40, 40}, true);
  auto& ctx = *current.context;
  AffineTransform t;
  t.translateXBy(10, 20);
  t.scaleXBy(2, 2);
  t.concat();
  Color::blackColor()->set();
  rectFill({1, 1, 1, 1});  // device (12, 22) to (14, 24)
  EXPECT_EQ(pixelAt(ctx, 12, 22).a, 255);
  EXPECT_EQ(pixelAt(ctx, 13, 23).a, 255);
  EXPECT_EQ(pixelAt(ctx, 14, 24).a, 0);
  EXPECT_EQ(pixelAt(ctx, 11, 22).a, 0);
  EXPECT_EQ(ctx.currentTransform(), t);

  AffineTransform::transform().set();
  EXPECT_EQ(ctx.currentTransform(), AffineTransform());
  rectFill({0, 0, 1, 1});
  EXPECT_EQ(pixelAt(ctx, 0, 0).a, 255);
}

TEST(DrawingRecorder, RecordsGeometryInUserAndContextCoordinates) {
  test::CurrentPicture current({200, 100}, true);
  auto& ctx = *current.context;
  auto recorder = std::make_shared<DrawingRecorder>();
  ctx.setRecorder(recorder);

  Color::lightGrayColor()->set();
  BezierPath::strokeLineFromPoint({10, 28}, {110, 28});
  AffineTransform shift;
  shift.translateXBy(5, 6);
  shift.concat();
  Color::whiteColor()->set();
  rectFill({1, 2, 30, 40});
  frameRect({0, 0, 10, 10});

  ASSERT_EQ(recorder->records().size(), 6u);
  const auto& line = recorder->records()[0];
  EXPECT_EQ(line.kind, DrawingRecord::Kind::StrokeLine);
  EXPECT_EQ(line.from, (Point{10, 28}));
  EXPECT_EQ(line.to, (Point{110, 28}));
  EXPECT_EQ(line.lineWidth, 1.0);
  EXPECT_TRUE(line.color->isEqual(*Color::lightGrayColor()));

  const auto& fill = recorder->records()[1];
  EXPECT_EQ(fill.kind, DrawingRecord::Kind::FillRect);
  EXPECT_EQ(fill.rect, (Rect{1, 2, 30, 40}));
  EXPECT_EQ(fill.contextRect(), (Rect{6, 8, 30, 40}));
  EXPECT_EQ(fill.operation, NSCompositeCopy);
  EXPECT_EQ(recorder->recordsOfKind(DrawingRecord::Kind::FillRect).size(), 5u) << "frameRect fills four edges";

  ctx.setRecorder(nullptr);
  rectFill({0, 0, 1, 1});
  EXPECT_EQ(recorder->records().size(), 6u);
}

TEST(Color, NamedColoursHaveThePlatformValues) {
  EXPECT_DOUBLE_EQ(Color::lightGrayColor()->whiteComponent(), 2.0 / 3.0);
  EXPECT_DOUBLE_EQ(Color::grayColor()->whiteComponent(), 0.5);
  EXPECT_DOUBLE_EQ(Color::darkGrayColor()->whiteComponent(), 1.0 / 3.0);
  EXPECT_EQ(Color::clearColor()->alphaComponent(), 0.0);
  EXPECT_EQ(Color::lightGrayColor(), Color::lightGrayColor()) << "one shared object per name";
  EXPECT_TRUE(Color::colorWithWhite(2.0 / 3.0, 1)->isEqual(*Color::lightGrayColor()));
  EXPECT_FALSE(Color::grayColor()->isEqual(*Color::lightGrayColor()));
  EXPECT_EQ(Color::colorWithDescriptor(ColorDescriptor::named(u"controlColor")), Color::controlColor());
  EXPECT_TRUE(Color::colorWithDescriptor(ColorDescriptor::rgb(0.2, 0.4, 0.6, 0.5))
                  ->isEqual(Color(0.2, 0.4, 0.6, 0.5)));
  EXPECT_EQ(Color::colorWithRed(2, -1, 0.5, 1)->redComponent(), 1.0) << "clamped";
  const auto mid = Color::blackColor()->blendedColorWithFraction(0.5, Color::whiteColor());
  EXPECT_DOUBLE_EQ(mid->whiteComponent(), 0.5);
  EXPECT_EQ(Color::blackColor()->blendedColorWithFraction(0.5, nullptr), nullptr);

  // Setting a colour made on the stack still works (it is copied).
  test::CurrentPicture current({4, 4}, true);
  Color(0, 1, 0, 1).set();
  EXPECT_TRUE(current.context->fillColor()->isEqual(*Color::greenColor()));
}

// Operators the pixel tests above do not draw with, and the filters, by their Porter-Duff names.
TEST(GraphicsContext, OperationsAndInterpolationMapToCairoAndHugeContextsAreRefused) {
  for (auto [op, cairo] : {std::pair{NSCompositeClear, CAIRO_OPERATOR_CLEAR}, {NSCompositeDestinationOut, CAIRO_OPERATOR_DEST_OUT},
                           {NSCompositePlusLighter, CAIRO_OPERATOR_ADD}, {999, CAIRO_OPERATOR_OVER}})
    EXPECT_EQ(cairoOperatorForCompositingOperation(op), cairo) << op;
  EXPECT_EQ(cairoFilterForImageInterpolation(NSImageInterpolationNone), CAIRO_FILTER_NEAREST);
  EXPECT_EQ(cairoFilterForImageInterpolation(NSImageInterpolationHigh), CAIRO_FILTER_BEST);
  EXPECT_EQ(GraphicsContext::imageContext({0, 10}, true), nullptr);
  EXPECT_EQ(GraphicsContext::imageContext({40000, 10}, true), nullptr);
}
