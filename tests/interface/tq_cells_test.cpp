// The text field cell and the image-and-text cell: set-up, the line-break choice, centring with
// floor, the separator rule, the highlight colour, image and text rectangles, cell size, drawing with
// the interpolation set and restored, editing over the text rectangle, and copies.
#include <gtest/gtest.h>

#include <cmath>

#include "platform/ui/pixels.h"
#include "tq/interface/tq_image_and_text_cell.h"
#include "tq/interface/tq_text_field_cell.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/string_drawing.h"
#include "tq/platform/ui/model/class_registry.h"
#include "tq/platform/ui/model/field_editor.h"

using namespace tq;
using Kind = DrawingRecord::Kind;

namespace {

using test::halves;

std::shared_ptr<TQImageAndTextCell> imageCell(const char16_t* text, ImageRef image) {
  auto cell = TQTextFieldCell::initTextCell<TQImageAndTextCell>(text);
  cell->setImage(std::move(image));
  return cell;
}

}  // namespace

// --- TQTextFieldCell ------------------------------------------------------------------------------

TEST(TQTextFieldCell, SetupCentresAndEndsWrappingNotScrolling) {
  auto cell = TQTextFieldCell::initTextCell(u"Name");
  EXPECT_TRUE(cell->centersVertically() && cell->wraps());
  EXPECT_FALSE(cell->isScrollable() || cell->truncatesWhenOneLineHigh() || cell->isSpace());
  // As read from an archive: whatever it held, awakeFromNib sets the cell up.
  TQTextFieldCell archived(u"Name");
  archived.setWraps(false);
  archived.setScrollable(true);
  archived.setTruncatesWhenOneLineHigh(true);
  EXPECT_FALSE(archived.centersVertically());
  archived.awakeFromNib();
  EXPECT_TRUE(archived.centersVertically() && archived.wraps() && archived.truncatesWhenOneLineHigh());
  EXPECT_FALSE(archived.isScrollable());
  // initImageCell sets the cell up too; an image-and-text cell takes the image as its icon.
  ImageRef icon = Image::imageWithSize({16, 16});
  auto iconCell = TQTextFieldCell::initImageCell<TQImageAndTextCell>(icon);
  EXPECT_EQ(iconCell->image(), icon);
  EXPECT_TRUE(iconCell->centersVertically() && iconCell->wraps());
  EXPECT_TRUE(std::dynamic_pointer_cast<TQTextFieldCell>(ClassRegistry::shared().makeObject(u"TQTextFieldCell")));
  EXPECT_TRUE(std::dynamic_pointer_cast<TQImageAndTextCell>(ClassRegistry::shared().makeObject(u"TQImageAndTextCell")));
}

TEST(TQTextFieldCell, WrapsOnlyWhenMoreThanTwoLinesFit) {
  auto cell = TQTextFieldCell::initTextCell(u"Some words");
  const double line = cell->lineHeight();
  EXPECT_EQ(line, Font::fontWithDescriptor(cell->font())->defaultLineHeight());
  EXPECT_GT(line, 10);
  const struct {
    double height;
    bool truncatesWhenOneLineHigh;
    LineBreakMode mode;
  } rows[] = {{2 * line, false, NSLineBreakByTruncatingTail},
              {2 * line + 1, false, NSLineBreakByWordWrapping},
              {10 * line, true, NSLineBreakByTruncatingTail}};
  for (const auto& row : rows) {
    cell->setTruncatesWhenOneLineHigh(row.truncatesWhenOneLineHigh);
    cell->adjustLineBreakModeForCellFrame({0, 0, 100, row.height});
    EXPECT_EQ(cell->wraps(), row.mode == NSLineBreakByWordWrapping) << row.height;
    EXPECT_EQ(cell->lineBreakMode(), row.mode) << row.height;
  }
  // Drawing re-decides, whatever the host set.
  test::CurrentPicture canvas;
  cell->setTruncatesWhenOneLineHigh(false);
  cell->setLineBreakMode(LineBreakMode::ByClipping);
  cell->drawInteriorWithFrame({0, 0, 100, 3 * line}, nullptr);
  ASSERT_EQ(canvas.of(Kind::DrawText).size(), 1u);
  EXPECT_EQ(canvas.of(Kind::DrawText)[0].lineBreakMode, static_cast<UInteger>(NSLineBreakByWordWrapping));
}

TEST(TQTextFieldCell, CentringMovesTheFrameDownByTheFloorOfHalfTheSlack) {
  auto cell = TQTextFieldCell::initTextCell(u"Hi");
  cell->adjustLineBreakModeForCellFrame({10, 20, 200, 0});
  const double textHeight = cell->cellSizeForBounds({10, 20, 200, 17}).height;
  const Rect inset = cell->textRectForFrame({0, 0, 0, 0});  // the text field cell's own inset
  // (centres, slack) -> where the text is drawn: 5 points of slack move it down by 2.
  const struct {
    bool centres;
    double slack, y, h;
  } rows[] = {{true, 5, 20 + 2 + inset.y, textHeight - 2 * inset.y},
              {true, 0, 20 + inset.y, textHeight - 2 * inset.y},
              {false, 5, 20 + inset.y, textHeight + 5 - 2 * inset.y}};
  for (const auto& row : rows) {
    test::CurrentPicture canvas;
    cell->setCentersVertically(row.centres);
    cell->drawInteriorWithFrame({10, 20, 200, textHeight + row.slack}, nullptr);
    const Rect drawn = canvas.of(Kind::DrawText).at(0).rect;
    EXPECT_EQ(drawn.x, 10 + inset.x);
    EXPECT_EQ(drawn.y, row.y) << row.centres << row.slack;
    EXPECT_EQ(drawn.h, std::max(row.h, 0.0)) << row.centres << row.slack;
  }
}

// A space draws one light grey rule across its middle and no text, after its background.
TEST(TQTextFieldCell, ASpaceDrawsALightGreyRuleAndNoText) {
  auto cell = TQTextFieldCell::initTextCell(u"hidden");
  cell->setIsSpace(true);
  for (const bool background : {false, true}) {
    test::CurrentPicture canvas({120, 40});
    cell->setDrawsBackground(background);
    cell->setBackgroundColor(ColorDescriptor::rgb(1, 1, 0));
    cell->drawWithFrame({10, 20, 100, 17}, nullptr);
    EXPECT_TRUE(canvas.of(Kind::DrawText).empty());
    EXPECT_EQ(canvas.of(Kind::FillRect).size(), background ? 1u : 0u);
    if (background) {
      EXPECT_EQ(canvas.recorder->records()[0].rect, (Rect{10, 20, 100, 17}));
    }
    ASSERT_EQ(canvas.recorder->records().back().kind, Kind::StrokeLine);
    const auto& line = canvas.recorder->records().back();
    EXPECT_EQ(line.from, (Point{10, 28}));
    EXPECT_EQ(line.to, (Point{110, 28}));
    EXPECT_TRUE(line.color->isEqual(*Color::lightGrayColor()));
    if (background) continue;
    // Pixels: only the rows around y = 28, only columns 10 to 109, in grey.
    EXPECT_EQ(test::inkedPixels(*canvas.context, 0, 0, 120, 40), test::inkedPixels(*canvas.context, 10, 27, 110, 29));
    EXPECT_GT(test::inkedPixels(*canvas.context, 10, 27, 110, 29), 99);
    const test::Pixel p = test::pixelAt(*canvas.context, 50, 28);
    EXPECT_TRUE(p.r == p.g && p.g == p.b);
  }
}

TEST(TQTextFieldCell, AnOrdinaryCellDrawsItsBackgroundThenItsText) {
  auto cell = TQTextFieldCell::initTextCell(u"Row");
  cell->setDrawsBackground(true);
  cell->setBackgroundColor(ColorDescriptor::rgb(0, 1, 0));
  test::CurrentPicture canvas;
  cell->drawWithFrame({0, 0, 100, 17}, nullptr);
  const auto& records = canvas.recorder->records();
  ASSERT_GE(records.size(), 2u);
  EXPECT_EQ(records.front().kind, Kind::FillRect);
  EXPECT_TRUE(records.front().color->isEqual(*Color::greenColor()));
  EXPECT_EQ(records.back().kind, Kind::DrawText);
  EXPECT_EQ(records.back().text, String(u"Row"));
  EXPECT_EQ(records.back().lineBreakMode, static_cast<UInteger>(NSLineBreakByTruncatingTail));
}

TEST(TQTextFieldCell, HighlightFollowsAnOpaqueBackground) {
  auto cell = TQTextFieldCell::initTextCell(u"x");
  const ColorRef platform = TextFieldCell().highlightColorWithFrame({}, nullptr);
  auto highlight = [&] { return cell->highlightColorWithFrame({}, nullptr); };
  EXPECT_TRUE(highlight()->isEqual(*platform));
  cell->setBackgroundColor(ColorDescriptor::rgb(1, 0, 0));
  EXPECT_TRUE(highlight()->isEqual(*platform));  // not drawn
  cell->setDrawsBackground(true);
  EXPECT_TRUE(highlight()->isEqual(*Color::redColor()));
  cell->setBackgroundColor(std::nullopt);
  EXPECT_TRUE(highlight()->isEqual(*platform));
}

// --- TQImageAndTextCell ---------------------------------------------------------------------------

TEST(TQImageAndTextCell, ImageAndTextRectangles) {
  auto cell = imageCell(u"Name", halves(16, 16));
  EXPECT_EQ(cell->yOffset(), 1.0);
  EXPECT_FALSE(cell->scaleImage());
  EXPECT_EQ(cell->imageFrameWithCellFrame({0, 0, 200, 18}), (Rect{3, 1, 16, 16}));
  EXPECT_EQ(cell->textFrameWithCellFrame({0, 0, 200, 18}), (Rect{22, 0, 178, 18}));
  // Odd slack rounds down.
  EXPECT_EQ(cell->imageFrameWithCellFrame({5, 10, 100, 21}), (Rect{8, 12, 16, 16}));

  cell->setCentersVertically(false);
  auto tall = imageCell(u"Name", halves(10, 40));
  tall->setCentersVertically(false);
  EXPECT_EQ(tall->imageFrameWithCellFrame({0, 0, 200, 18}), (Rect{3, 1, 10, 40}));  // not clipped

  auto scaled = TQTextFieldCell::initTextCell<TQImageAndTextCell>(u"x");
  scaled->setScaleImage(true);
  scaled->setImage(halves(32, 16));
  EXPECT_EQ(scaled->imageFrameWithCellFrame({0, 0, 100, 20}).size(), (Size{18, 9}));
  scaled->setImage(halves(16, 32));
  EXPECT_EQ(scaled->imageFrameWithCellFrame({0, 0, 100, 20}).size(), (Size{9, 18}));
  scaled->setImage(halves(10, 10));
  EXPECT_EQ(scaled->imageFrameWithCellFrame({0, 0, 100, 20}), (Rect{3, 1, 18, 18}));
  EXPECT_EQ(scaled->textFrameWithCellFrame({0, 0, 100, 20}), (Rect{24, 0, 76, 20}));
  // Subclasses change the layout constants.
  struct Roomy : TQImageAndTextCell {
    using TQImageAndTextCell::TQImageAndTextCell;
    double horizontalSpaceBetweenLeftEdgeAndImage() const override { return 10; }
    double horizontalSpaceBetweenImageAndText() const override { return 5; }
    double verticalImagePadding() const override { return 4; }
  };
  auto roomy = TQTextFieldCell::initTextCell<Roomy>(u"x");
  roomy->setImage(halves(40, 40));
  roomy->setScaleImage(true);
  EXPECT_EQ(roomy->imageFrameWithCellFrame({0, 0, 200, 30}), (Rect{10, 4, 22, 22}));
  EXPECT_EQ(roomy->textFrameWithCellFrame({0, 0, 200, 30}), (Rect{37, 0, 163, 30}));
  // The cell size widens for the image only.
  auto plain = TQTextFieldCell::initTextCell(u"Documents");
  auto wide = imageCell(u"Documents", halves(16, 40));
  const Size base = plain->cellSize();
  EXPECT_EQ(wide->cellSize(), (Size{base.width + 22, base.height}));
  wide->setImage(nullptr);
  EXPECT_EQ(wide->cellSize(), base);
}

TEST(TQImageAndTextCell, DrawsTheImageFlippedWithHighInterpolationThenTheText) {
  auto cell = imageCell(u"Name", halves(16, 16));
  test::CurrentPicture canvas;
  canvas.context->setImageInterpolation(NSImageInterpolationLow);
  cell->drawInteriorWithFrame({0, 0, 200, 18}, nullptr);
  EXPECT_EQ(canvas.context->imageInterpolation(), NSImageInterpolationLow);
  EXPECT_EQ(canvas.context->savedStateCount(), 0u);
  const auto images = canvas.of(Kind::DrawImage);
  ASSERT_EQ(images.size(), 1u);
  EXPECT_EQ(images[0].interpolation, NSImageInterpolationHigh);
  EXPECT_EQ(images[0].operation, NSCompositeSourceOver);
  EXPECT_EQ(images[0].fraction, 1.0);
  EXPECT_EQ(images[0].contextRect(), (Rect{3, 1, 16, 16}));
  const auto texts = canvas.of(Kind::DrawText);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_GE(texts[0].rect.x, 22);
  EXPECT_LE(texts[0].rect.maxX(), 200);
  // Upright in the flipped context: red on top.
  EXPECT_GT(test::pixelAt(*canvas.context, 10, 2).r, 200);
  EXPECT_GT(test::pixelAt(*canvas.context, 10, 15).b, 200);
  EXPECT_EQ(test::pixelAt(*canvas.context, 10, 0).a, 0);
  // A scaled image without height is not drawn; the text still is, the interpolation untouched.
  canvas.recorder->clear();
  cell->image()->setSize({16, 0});
  cell->setScaleImage(true);
  cell->drawInteriorWithFrame({0, 0, 200, 18}, nullptr);
  EXPECT_TRUE(canvas.of(Kind::DrawImage).empty());
  EXPECT_EQ(canvas.of(Kind::DrawText).size(), 1u);
  EXPECT_EQ(canvas.context->imageInterpolation(), NSImageInterpolationLow);
}

TEST(TQImageAndTextCell, WrappedTextIsMeasuredAndCentredInTheTextRectangle) {
  // A row six lines high and 150 wide: the text wraps in the text rectangle beside the icon, and
  // the block is centred in that rectangle by its own wrapped height, as the plain text cell does.
  const String text = u"A long description that wraps over several lines beside its icon in a tall row";
  auto cell = imageCell(u"", halves(16, 16));
  cell->setStringValue(text);
  const double line = cell->lineHeight();
  const Rect frame{0, 0, 150, 6 * line};
  const Rect t = cell->textFrameWithCellFrame(frame);
  ASSERT_EQ(t.x, 22);
  test::CurrentPicture canvas({150, 200});
  cell->drawInteriorWithFrame(frame, nullptr);
  const auto texts = canvas.of(Kind::DrawText);
  ASSERT_EQ(texts.size(), 1u);
  // Expected from the text system alone: the text wrapped at the text's width inside T (the cell
  // insets its text 2 points each side), then the centring floor.
  TextAttributes a;
  a.font = Font::fontWithDescriptor(cell->font());
  a.lineBreakMode = LineBreakMode::ByWordWrapping;
  const double wrapped = sizeOfText(text, a, {t.w - 4, 0}).height;
  ASSERT_GT(wrapped, 2 * line) << "the case needs a text of several lines";
  ASSERT_LT(wrapped, frame.h);
  const double y = std::floor((frame.h - wrapped) * 0.5);
  EXPECT_EQ(texts[0].rect, (Rect{t.x + 2, y, t.w - 4, wrapped}));
  EXPECT_EQ(texts[0].lineBreakMode, static_cast<UInteger>(NSLineBreakByWordWrapping));

  // The same text in a plain text cell over the same text rectangle lands in the same place.
  auto plain = TQTextFieldCell::initTextCell(text);
  canvas.recorder->clear();
  plain->drawInteriorWithFrame(t, nullptr);
  EXPECT_EQ(canvas.of(Kind::DrawText).at(0).rect, texts[0].rect);
}

TEST(TQImageAndTextCell, ANonCentringCellShiftsItsDrawingByYOffset) {
  auto cell = imageCell(u"Name", halves(16, 16));
  cell->setCentersVertically(false);
  {
    test::CurrentPicture canvas;
    cell->drawInteriorWithFrame({0, 0, 200, 18}, nullptr);
    EXPECT_EQ(canvas.of(Kind::DrawImage).at(0).contextRect(), (Rect{3, 2, 16, 16}));
    const Rect text = canvas.of(Kind::DrawText).at(0).rect;
    EXPECT_EQ(text.y - cell->textRectForFrame({}).y, 1);
    EXPECT_EQ(text.h + 2 * cell->textRectForFrame({}).y, 17);
  }
  // Without an image: as the text cell, moved down by yOffset.
  cell->setImage(nullptr);
  cell->setYOffset(4);
  auto plain = TQTextFieldCell::initTextCell(u"Name");
  plain->setCentersVertically(false);
  test::CurrentPicture a;
  plain->drawInteriorWithFrame({0, 4, 200, 14}, nullptr);
  const Rect expected = a.of(Kind::DrawText).at(0).rect;
  a.recorder->clear();
  cell->drawInteriorWithFrame({0, 0, 200, 18}, nullptr);
  EXPECT_TRUE(a.of(Kind::DrawImage).empty());
  EXPECT_EQ(a.of(Kind::DrawText).at(0).rect, expected);
}

TEST(TQImageAndTextCell, EditingAndSelectingUseTheTextRectangleWithoutTheShift) {
  auto cell = imageCell(u"Filename", halves(16, 16));
  cell->setCentersVertically(false);
  FieldEditor editor;
  auto delegate = std::make_shared<Object>();
  const Rect frame{0, 0, 200, 18};
  cell->editWithFrame(frame, nullptr, &editor, delegate, nullptr);
  EXPECT_TRUE(editor.isEditing());
  EXPECT_EQ(editor.editedCell(), cell.get());
  EXPECT_EQ(editor.frame(), cell->textRectForFrame(cell->textFrameWithCellFrame(frame)));
  EXPECT_EQ(editor.string(), String(u"Filename"));
  EXPECT_EQ(editor.selectedRange(), (Range{8, 0}));
  EXPECT_EQ(editor.delegate(), delegate);

  cell->selectWithFrame(frame, nullptr, &editor, delegate, 2, 3);
  EXPECT_EQ(editor.frame(), cell->textRectForFrame(cell->textFrameWithCellFrame(frame)));
  EXPECT_EQ(editor.selectedRange(), (Range{2, 3}));

  cell->setImage(nullptr);
  cell->selectWithFrame(frame, nullptr, &editor, delegate, 0, 100);
  EXPECT_EQ(editor.frame(), cell->textRectForFrame(frame));
  EXPECT_EQ(editor.selectedRange(), (Range{0, 8}));
}

TEST(TQImageAndTextCell, CopiesOwnACopyOfTheImage) {
  auto cell = imageCell(u"x", halves(8, 8));
  cell->setScaleImage(true);
  cell->setYOffset(2.5);
  cell->setIsSpace(true);

  auto copy = std::dynamic_pointer_cast<TQImageAndTextCell>(cell->copy());
  ASSERT_TRUE(copy);
  ASSERT_TRUE(copy->image());
  EXPECT_NE(copy->image().get(), cell->image().get());
  EXPECT_TRUE(copy->image()->isEqual(*cell->image()));
  EXPECT_TRUE(copy->scaleImage());
  EXPECT_EQ(copy->yOffset(), 2.5);
  EXPECT_TRUE(copy->isSpace());
  auto empty = TQTextFieldCell::initTextCell<TQImageAndTextCell>(u"x");
  EXPECT_FALSE(std::dynamic_pointer_cast<TQImageAndTextCell>(empty->copyWithZone())->image());
  // A plain text field cell's copy carries its flags too.
  auto plain = TQTextFieldCell::initTextCell(u"x");
  plain->setIsSpace(true);
  plain->setTruncatesWhenOneLineHigh(true);
  plain->setCentersVertically(false);
  auto plainCopy = std::dynamic_pointer_cast<TQTextFieldCell>(plain->copy());
  ASSERT_TRUE(plainCopy);
  EXPECT_NE(plainCopy.get(), plain.get());
  EXPECT_TRUE(plainCopy->isSpace() && plainCopy->truncatesWhenOneLineHigh() && !plainCopy->centersVertically());
}
