// Inspection of presented windows: widget records, JSON lines, screenshots, frame callbacks.
#include "tq/gtk/widget_inspection.h"

#include <cmath>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#ifdef GDK_WINDOWING_X11
#include <gdk/x11/gdkx.h>
#endif

#include "presenter_impl.h"
#include "tables.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"

namespace tq {

namespace {

std::string textOf(GtkWidget* widget) {
  if (GTK_IS_LABEL(widget)) return gtk_label_get_text(GTK_LABEL(widget));
  if (GTK_IS_PASSWORD_ENTRY(widget)) return std::string();
  if (GTK_IS_EDITABLE(widget)) return gtk_editable_get_text(GTK_EDITABLE(widget));
  if (GTK_IS_CHECK_BUTTON(widget)) {
    const char* label = gtk_check_button_get_label(GTK_CHECK_BUTTON(widget));
    return label ? label : "";
  }
  if (GTK_IS_MENU_BUTTON(widget)) {
    const char* label = gtk_menu_button_get_label(GTK_MENU_BUTTON(widget));
    return label ? label : "";
  }
  if (GTK_IS_BUTTON(widget)) {
    if (GtkWidget* label = buttonLabel(widget)) return gtk_label_get_text(GTK_LABEL(label));
    return std::string();
  }
  if (GTK_IS_DROP_DOWN(widget)) {
    GObject* item = G_OBJECT(gtk_drop_down_get_selected_item(GTK_DROP_DOWN(widget)));
    return item && GTK_IS_STRING_OBJECT(item) ? gtk_string_object_get_string(GTK_STRING_OBJECT(item)) : "";
  }
  if (GTK_IS_TEXT_VIEW(widget)) {
    GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(widget));
    GtkTextIter start, end;
    gtk_text_buffer_get_bounds(buffer, &start, &end);
    char* all = gtk_text_buffer_get_text(buffer, &start, &end, FALSE);
    std::string text = all ? all : "";
    g_free(all);
    return text;
  }
  if (GTK_IS_WINDOW(widget)) {
    const char* title = gtk_window_get_title(GTK_WINDOW(widget));
    return title ? title : "";
  }
  if (TQ_IS_CELL_VIEW(widget)) return utf8(cellViewInfo(widget).text);
  return std::string();
}

void describeModel(WidgetRecord& r, GtkWidget* widget, InterfaceObject* object) {
  r.modelClass = utf8(object->className());
  r.identifier = utf8(object->archiveIdentifier());
  if (auto* button = dynamic_cast<Button*>(object); button && !dynamic_cast<PopUpButton*>(object)) {
    r.hasState = true;
    r.state = button->state();
  } else if (auto* control = dynamic_cast<Control*>(object); control && control->cell() && !dynamic_cast<TableView*>(object)) {
    r.hasValue = true;
    r.value = utf8(control->stringValue());
  } else if (auto* cell = dynamic_cast<Cell*>(object)) {
    r.hasState = true;
    r.state = cell->state();
  }
  if (auto* field = dynamic_cast<TextField*>(object)) r.placeholder = utf8(field->placeholderString());
  (void)widget;
}

void collect(GtkWidget* widget, GtkWidget* root, double dx, double dy, std::vector<WidgetRecord>& out) {
  if (!gtk_widget_get_mapped(widget)) return;
  auto* object = static_cast<InterfaceObject*>(g_object_get_data(G_OBJECT(widget), kModelObjectKey));
  const std::string text = textOf(widget);
  const bool cell = TQ_IS_CELL_VIEW(widget);
  if (object || !text.empty() || cell) {
    graphene_rect_t b;
    if (gtk_widget_compute_bounds(widget, root, &b)) {
      WidgetRecord r;
      r.type = G_OBJECT_TYPE_NAME(widget);
      r.text = text;
      r.x = static_cast<int>(std::lround(b.origin.x + dx));
      r.y = static_cast<int>(std::lround(b.origin.y + dy));
      r.width = static_cast<int>(std::lround(b.size.width));
      r.height = static_cast<int>(std::lround(b.size.height));
      r.sensitive = gtk_widget_is_sensitive(widget);
      if (object) describeModel(r, widget, object);
      if (cell) {
        const CellViewInfo info = cellViewInfo(widget);
        r.row = info.row;
        r.selected = info.selected;
        r.space = info.space;
        if (info.column) {
          r.column = utf8(info.column->identifier());
          if (r.column.empty() && info.column->tableView()) {
            const auto& columns = info.column->tableView()->tableColumns();
            for (std::size_t i = 0; i < columns.size(); ++i) {
              if (columns[i].get() == info.column) r.column = std::to_string(i);
            }
          }
        }
      }
      out.push_back(std::move(r));
    }
  }
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child; child = gtk_widget_get_next_sibling(child)) {
    collect(child, root, dx, dy, out);
  }
}

}  // namespace

std::string jsonEscape(const std::string& s) {
  std::string out;
  out.reserve(s.size() + 2);
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out;
}

std::vector<WidgetRecord> inspectWindow(GtkWindow* window) {
  std::vector<WidgetRecord> out;
  GtkWidget* root = GTK_WIDGET(window);
  double dx = 0, dy = 0;
  if (gtk_widget_get_realized(root)) gtk_native_get_surface_transform(GTK_NATIVE(window), &dx, &dy);
  WidgetRecord w;
  w.type = G_OBJECT_TYPE_NAME(root);
  w.text = textOf(root);
  w.x = static_cast<int>(std::lround(dx));
  w.y = static_cast<int>(std::lround(dy));
  w.width = gtk_widget_get_width(root);
  w.height = gtk_widget_get_height(root);
  if (auto* object = static_cast<InterfaceObject*>(g_object_get_data(G_OBJECT(root), kModelObjectKey))) {
    w.modelClass = utf8(object->className());
    w.identifier = utf8(object->archiveIdentifier());
  }
#ifdef GDK_WINDOWING_X11
  if (GdkSurface* surface = gtk_native_get_surface(GTK_NATIVE(window)); surface && GDK_IS_X11_SURFACE(surface)) {
    w.xid = gdk_x11_surface_get_xid(surface);
  }
#endif
  out.push_back(std::move(w));
  for (GtkWidget* child = gtk_widget_get_first_child(root); child; child = gtk_widget_get_next_sibling(child)) {
    collect(child, root, dx, dy, out);
  }
  return out;
}

std::string widgetRecordJSON(const WidgetRecord& r) {
  std::string s = "{\"type\":\"" + jsonEscape(r.type) + "\",\"text\":\"" + jsonEscape(r.text) + "\"";
  s += ",\"x\":" + std::to_string(r.x) + ",\"y\":" + std::to_string(r.y);
  s += ",\"width\":" + std::to_string(r.width) + ",\"height\":" + std::to_string(r.height);
  if (!r.modelClass.empty()) s += ",\"class\":\"" + jsonEscape(r.modelClass) + "\"";
  if (!r.identifier.empty()) s += ",\"id\":\"" + jsonEscape(r.identifier) + "\"";
  if (r.hasState) s += ",\"state\":" + std::to_string(r.state);
  if (r.hasValue) s += ",\"value\":\"" + jsonEscape(r.value) + "\"";
  if (!r.placeholder.empty()) s += ",\"placeholder\":\"" + jsonEscape(r.placeholder) + "\"";
  if (r.row >= 0) {
    s += ",\"row\":" + std::to_string(r.row) + ",\"column\":\"" + jsonEscape(r.column) + "\"";
    s += std::string(",\"selected\":") + (r.selected ? "true" : "false");
    s += std::string(",\"space\":") + (r.space ? "true" : "false");
  }
  if (!r.sensitive) s += ",\"sensitive\":false";
  if (r.xid) s += ",\"xid\":" + std::to_string(r.xid);
  return s + "}";
}

void writeWidgetDump(GtkWindow* window, std::FILE* out) {
  const auto records = inspectWindow(window);
  for (std::size_t i = 0; i < records.size(); ++i) {
    std::string line = widgetRecordJSON(records[i]);
    if (i == 0) line.insert(line.size() - 1, ",\"count\":" + std::to_string(records.size()));
    std::fputs(line.c_str(), out);
    std::fputc('\n', out);
  }
  std::fflush(out);
}

bool saveScreenshot(GtkWindow* window, const std::string& path, std::string* error) {
  GtkWidget* widget = GTK_WIDGET(window);
  const int width = gtk_widget_get_width(widget), height = gtk_widget_get_height(widget);
  GskRenderer* renderer = gtk_widget_get_realized(widget) ? gtk_native_get_renderer(GTK_NATIVE(window)) : nullptr;
  if (!renderer || width <= 0 || height <= 0) {
    if (error) *error = "the window is not on screen";
    return false;
  }
  GdkPaintable* paintable = gtk_widget_paintable_new(widget);
  GtkSnapshot* snapshot = gtk_snapshot_new();
  gdk_paintable_snapshot(paintable, GDK_SNAPSHOT(snapshot), width, height);
  GskRenderNode* node = gtk_snapshot_free_to_node(snapshot);
  g_object_unref(paintable);
  if (!node) {
    if (error) *error = "the window drew nothing";
    return false;
  }
  graphene_rect_t area = GRAPHENE_RECT_INIT(0, 0, static_cast<float>(width), static_cast<float>(height));
  GdkTexture* texture = gsk_renderer_render_texture(renderer, node, &area);
  gsk_render_node_unref(node);
  // Written beside the destination and renamed over it: a reader sees the old picture or the new.
  const std::string folder = path.find('/') == std::string::npos ? "." : path.substr(0, path.rfind('/'));
  std::string temporary = (folder.empty() ? std::string("/") : folder) + "/.tqkit-screenshot-XXXXXX";
  const int fd = ::mkstemp(temporary.data());
  bool saved = false;
  int why = 0;
  if (fd >= 0) {
    ::close(fd);
    saved = texture && gdk_texture_save_to_png(texture, temporary.c_str()) && ::chmod(temporary.c_str(), 0644) == 0 &&
            std::rename(temporary.c_str(), path.c_str()) == 0;
    why = errno;
    if (!saved) std::remove(temporary.c_str());
  } else {
    why = errno;
  }
  if (texture) g_object_unref(texture);
  if (!saved && error) *error = "cannot write " + path + ": " + std::strerror(why ? why : EIO);
  return saved;
}

namespace {

struct FrameWaiter {
  std::function<void()> then;
  GtkWindow* window;
  gulong handler = 0;
  gulong mapHandler = 0;
};

gboolean runWaiter(gpointer data) {
  auto* waiter = static_cast<FrameWaiter*>(data);
  waiter->then();
  g_object_unref(waiter->window);
  delete waiter;
  return G_SOURCE_REMOVE;
}

void afterPaint(GdkFrameClock* clock, gpointer data) {
  auto* waiter = static_cast<FrameWaiter*>(data);
  g_signal_handler_disconnect(clock, waiter->handler);
  // Out of the frame: the callback may inspect, draw or change widgets.
  g_idle_add_full(G_PRIORITY_HIGH, runWaiter, waiter, nullptr);
}

void watchClock(FrameWaiter* waiter) {
  GdkFrameClock* clock = gtk_widget_get_frame_clock(GTK_WIDGET(waiter->window));
  waiter->handler = g_signal_connect(clock, "after-paint", G_CALLBACK(afterPaint), waiter);
  gtk_widget_queue_draw(GTK_WIDGET(waiter->window));
  gdk_frame_clock_request_phase(clock, GDK_FRAME_CLOCK_PHASE_PAINT);
}

}  // namespace

void afterNextFrame(GtkWindow* window, std::function<void()> then) {
  auto* waiter = new FrameWaiter{std::move(then), GTK_WINDOW(g_object_ref(window))};
  if (gtk_widget_get_mapped(GTK_WIDGET(window))) {
    watchClock(waiter);
    return;
  }
  waiter->mapHandler = g_signal_connect(window, "map", G_CALLBACK(+[](GtkWidget* mapped, gpointer data) {
                                          auto* w = static_cast<FrameWaiter*>(data);
                                          g_signal_handler_disconnect(mapped, w->mapHandler);
                                          watchClock(w);
                                        }),
                                        waiter);
}

}  // namespace tq
