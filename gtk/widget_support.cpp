// Small pieces every family of widgets uses: fonts, images as textures, the library's drawing in a
// drawing area, and the style sheet of presented windows.
#include <cstring>
#include <map>
#include <tuple>

#include "presenter_impl.h"
#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/image.h"
#include "tq/platform/ui/drawing/view_drawing.h"

namespace tq {

std::string utf8(const String& s) { return s.isNil() ? std::string() : s.UTF8String(); }

PangoAttrList* fontAttributes(const FontDescriptor& descriptor) {
  // One list per font, shared: interfaces use a handful of fonts for hundreds of labels.
  static std::map<std::tuple<std::string, double, bool>, PangoAttrList*> lists;
  const auto key = std::make_tuple(utf8(descriptor.name), descriptor.size, descriptor.bold);
  if (auto it = lists.find(key); it != lists.end()) return pango_attr_list_ref(it->second);
  FontRef font = Font::fontWithDescriptor(descriptor);
  if (!font) font = Font::systemFontOfSize(0);
  PangoFontDescription* description = pango_font_description_copy(font->pangoFontDescription());
  // The model's points are pixels on screen, as in the library's drawing.
  pango_font_description_set_absolute_size(description, font->pointSize() * PANGO_SCALE);
  PangoAttrList* list = pango_attr_list_new();
  pango_attr_list_insert(list, pango_attr_font_desc_new(description));
  pango_font_description_free(description);
  lists.emplace(key, list);
  return pango_attr_list_ref(list);
}

bool isDefaultFont(const FontDescriptor& font) {
  return !font.bold && font.size == Font::systemFontSize() && font.name == FontDescriptor::systemFamilyName();
}

GtkWidget* buttonLabel(GtkWidget* button) {
  GtkWidget* child = GTK_IS_BUTTON(button) ? gtk_button_get_child(GTK_BUTTON(button)) : nullptr;
  if (child && GTK_IS_LABEL(child)) return child;
  if (GTK_IS_CHECK_BUTTON(button)) {
    for (GtkWidget* c = gtk_widget_get_first_child(button); c; c = gtk_widget_get_next_sibling(c)) {
      if (GTK_IS_LABEL(c)) return c;
    }
  }
  return nullptr;
}

void applyFont(GtkWidget* widget, const FontDescriptor& font) {
  // The style sheet gives presented windows the system font already.
  if (isDefaultFont(font)) return;
  GtkWidget* label = GTK_IS_LABEL(widget) ? widget : buttonLabel(widget);
  if (!label) return;
  PangoAttrList* list = fontAttributes(font);
  gtk_label_set_attributes(GTK_LABEL(label), list);
  pango_attr_list_unref(list);
}

GdkTexture* textureOfImage(const Image& image) {
  cairo_surface_t* surface = image.surface();
  cairo_surface_flush(surface);
  const int width = cairo_image_surface_get_width(surface), height = cairo_image_surface_get_height(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  GBytes* bytes = g_bytes_new(cairo_image_surface_get_data(surface), static_cast<gsize>(stride) * height);
  // Cairo's ARGB32 is premultiplied, native-endian 32-bit words.
  const GdkMemoryFormat format =
      G_BYTE_ORDER == G_LITTLE_ENDIAN ? GDK_MEMORY_B8G8R8A8_PREMULTIPLIED : GDK_MEMORY_A8R8G8B8_PREMULTIPLIED;
  GdkTexture* texture = gdk_memory_texture_new(width, height, format, bytes, static_cast<gsize>(stride));
  g_bytes_unref(bytes);
  return texture;
}

void drawViewInto(cairo_t* cr, const View& view, const std::shared_ptr<const NamedImageSource>& images) {
  const Rect frame = view.frame();
  auto context = GraphicsContext::graphicsContextWithCairo(cr, frame.h, true);
  auto previous = GraphicsContext::currentContext();
  GraphicsContext::setCurrentContext(context);
  GraphicsContext::saveGraphicsState();
  AffineTransform t;
  t.translateXBy(-frame.x, -frame.y);
  t.concat();
  ViewDrawingOptions options;
  options.images = images;
  drawViewHierarchy(view, true, options);
  GraphicsContext::restoreGraphicsState();
  GraphicsContext::setCurrentContext(previous);
}

namespace {

using DrawFunction = std::function<void(cairo_t*, int, int)>;

void drawThrough(GtkDrawingArea*, cairo_t* cr, int width, int height, gpointer data) {
  (*static_cast<DrawFunction*>(data))(cr, width, height);
}

}  // namespace

GtkWidget* drawingWidget(std::function<void(cairo_t*, int, int)> draw) {
  GtkWidget* area = gtk_drawing_area_new();
  gtk_drawing_area_set_draw_func(GTK_DRAWING_AREA(area), drawThrough, new DrawFunction(std::move(draw)),
                                 [](gpointer data) { delete static_cast<DrawFunction*>(data); });
  return area;
}

void installPresenterStyles() {
  GdkDisplay* display = gdk_display_get_default();
  if (!display || g_object_get_data(G_OBJECT(display), "tq-presenter-styles")) return;
  // Interface files lay controls out at the platform's compact sizes: widgets of presented windows
  // keep to the frames they are given, at the model's 13-point system font.
  static const char* css = R"css(
window.tq-presented .tq-content { font-size: 13px; font-family: "DejaVu Sans Condensed", "DejaVu Sans", sans-serif; }
window.tq-presented .tq-content button { min-height: 0; min-width: 0; padding: 0 6px; }
window.tq-presented .tq-content button.image-button, window.tq-presented .tq-content button.tq-image { padding: 0; }
window.tq-presented .tq-content checkbutton { min-height: 0; padding: 0; }
window.tq-presented .tq-content checkbutton > check, window.tq-presented .tq-content checkbutton > radio {
  min-width: 12px; min-height: 12px; margin: 0 4px 0 2px; padding: 0; }
window.tq-presented .tq-content entry { min-height: 0; padding: 0 4px; }
window.tq-presented .tq-content spinbutton { min-height: 0; }
window.tq-presented .tq-content dropdown > button, window.tq-presented .tq-content menubutton > button {
  min-height: 0; padding: 0 6px; }
window.tq-presented .tq-content notebook > header > tabs > tab { min-height: 0; padding: 2px 10px; }
window.tq-presented .tq-content scale { min-height: 0; padding: 0; }
window.tq-presented .tq-content progressbar > trough, window.tq-presented .tq-content progressbar > trough > progress {
  min-height: 4px; }
window.tq-presented .tq-content levelbar > trough { min-height: 4px; padding: 1px; }
window.tq-presented .tq-content button.tq-stepper { padding: 0; min-height: 0; min-width: 0; }
window.tq-presented .tq-content columnview.tq-cells > listview > row { padding: 0; min-height: 0; background: none; }
window.tq-presented .tq-content columnview.tq-cells > listview > row > cell { padding: 0; }
window.tq-presented .tq-content columnview.tq-cells > header > button { min-height: 0; padding: 1px 4px; }
window.tq-presented.tq-hud .tq-content { background-color: #2a2a2a; color: #eeeeee; }
window.tq-presented .tq-content frame.tq-borderless { border: none; }
window.tq-presented .tq-toolbar { padding: 4px 6px; border-bottom: 1px solid alpha(black, 0.15); }
window.tq-presented .tq-toolbar button { padding: 2px 6px; }
)css";
  GtkCssProvider* provider = gtk_css_provider_new();
  gtk_css_provider_load_from_data(provider, css, static_cast<gssize>(std::strlen(css)));
  gtk_style_context_add_provider_for_display(display, GTK_STYLE_PROVIDER(provider),
                                             GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  g_object_set_data_full(G_OBJECT(display), "tq-presenter-styles", provider, g_object_unref);
}

}  // namespace tq
