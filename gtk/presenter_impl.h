// The presenter's inside, shared by the units that make the widgets of each family (controls,
// tables, menus, the drawn fallback) and by the inspection of presented windows.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tq/gtk/gtk_presenter.h"
#include "tq/platform/ui/model/control.h"
#include "tq/platform/ui/model/font_descriptor.h"
#include "tq/platform/ui/model/view.h"

namespace tq {

class Cell;
class Image;
struct TableState;

// The key under which a widget made for a model object keeps that object (g_object_get_data).
inline constexpr const char* kModelObjectKey = "tq-model-object";
// The key under which such a widget keeps its presenter's inside.
inline constexpr const char* kPresenterKey = "tq-presenter";

struct GtkPresenter::Impl {
  GtkPresenter* owner = nullptr;  // the presenter, for shared_from_this-free calls
  std::vector<ObjectRef> objects;
  GtkPresenterOptions options;
  std::shared_ptr<Menu> mainMenu;

  std::unordered_map<const InterfaceObject*, GtkWidget*> widgets;
  std::map<const InterfaceObject*, GtkWindow*> windows;
  std::vector<GtkWindow*> windowOrder;
  std::vector<GtkWidget*> detached;  // top-level view trees handed to the host (referenced)
  // Model-to-widget comparisons, run by synchronize(); each answers whether it changed a widget.
  std::vector<std::function<bool()>> syncers;
  std::map<const TableView*, std::unique_ptr<TableState>> tables;
  std::vector<ObjectRef> responders;
  std::vector<ObjectRef> keepAlive;  // model objects made for drawing (image stand-ins)
  std::vector<String> fallbacks;
  ActionObserver actionObserver;
  std::function<void(const InterfaceObject&)> windowClosed;
  GSource* syncSource = nullptr;
  // True while model values are being pushed into widgets: their change signals then send no
  // action and write nothing back.
  int pushing = 0;
  bool dying = false;
  unsigned menuActionCount = 0;

  ~Impl();

  // --- building -----------------------------------------------------------------------------------
  GtkWindow* buildWindow(const InterfaceObject& object);
  // The widget for a view and its subtree, registered; nullptr for views that are not shown as
  // widgets of their own (scrollers, the header views tables show themselves).
  GtkWidget* build(View& view);
  // Each subview of `parent` built and placed in `box` at its frame.
  void buildSubviews(View& parent, GtkWidget* box);
  // Remembers which object a widget shows (both ways).
  void remember(GtkWidget* widget, InterfaceObject* object);
  // The comparisons every view gets: hidden, tool tip, frame, and enabled for controls.
  void watchView(View& view, GtkWidget* widget);
  // Adds a comparison for the window (or host-held view tree) being built: it stops when that
  // window's widgets are destroyed (by the host, or by GTK at its end).
  void addSyncer(std::function<bool()> syncer) {
    syncers.push_back([alive = building, syncer = std::move(syncer)] { return (!alive || *alive) && syncer(); });
  }
  // The window or view tree being built: true until its widgets are destroyed.
  std::shared_ptr<bool> building;
  // Makes a flag for a window or tree about to be built, false once `root` is destroyed.
  std::shared_ptr<bool> aliveWhile(GtkWidget* root);
  // A key that activates a widget from anywhere in its window (a button's key equivalent). The
  // window being built collects them in one shortcut controller.
  void addKeyEquivalent(GtkShortcutTrigger* trigger, GtkWidget* widget);
  GtkShortcutController* keyEquivalents = nullptr;

  // Family builders (controls.cpp, containers.cpp, tables.cpp, menus.cpp, fallback.cpp).
  GtkWidget* buildControl(View& view);     // buttons, fields, pop-ups, sliders, ...; nullptr if not one
  GtkWidget* buildContainer(View& view);   // boxes, tab views, scroll and split views; nullptr if not one
  GtkWidget* buildTable(TableView& table);
  GtkWidget* buildMatrix(class Matrix& matrix);
  GtkWidget* buildFallback(View& view);    // the library's drawing in a drawing area
  GtkWidget* buildMenuBar(Menu& menu, GtkWindow* window);
  GtkWidget* buildToolbar(class Toolbar& toolbar);
  // A widget showing the named image: a picture when the image source has it, else the drawing's
  // stand-in; `size` in points.
  GtkWidget* imageWidget(const String& name, Size size);
  // A GMenu of a menu's visible items (sections between separators, submenus), whose items run
  // actions of the group `group` (named "tq" where inserted); the first `skip` items are left out.
  GMenuModel* menuModel(Menu& menu, GSimpleActionGroup* group, GtkShortcutController* shortcuts,
                        long skip = 0);

  // --- actions ------------------------------------------------------------------------------------
  // Sends a control's action (its own target and action) with the control as sender, unless values
  // are being pushed.
  void controlActed(Control& control);
  bool send(const String& selector, const ObjectRef& target, const ObjectRef& sender, GtkWindow* window);

  // --- values -------------------------------------------------------------------------------------
  bool synchronize();
  struct Pushing {
    Impl& impl;
    explicit Pushing(Impl& i) : impl(i) { ++impl.pushing; }
    ~Pushing() { --impl.pushing; }
  };
};

// The presenter inside that made a widget (or one of its ancestors), or nullptr.
GtkPresenter::Impl* presenterOfWidget(GtkWidget* widget);

// Text attributes for the model's font, at its size in pixels (a point of the model is a pixel); a
// new reference to a list shared by every widget of that font.
PangoAttrList* fontAttributes(const FontDescriptor& font);
// Whether a font is the system font at its standard size, which presented windows show anyway.
bool isDefaultFont(const FontDescriptor& font);
// Applies the font to a label, or to the label inside a button (nothing for the default font).
void applyFont(GtkWidget* widget, const FontDescriptor& font);
// The label a button shows (its child when that is a label), or nullptr.
GtkWidget* buttonLabel(GtkWidget* button);
// UTF-8 of a string; "" for nil.
std::string utf8(const String& s);
// The text of a JSON string (without its quotes) holding `s`.
std::string jsonEscape(const std::string& s);
// A texture of an image's pixels.
GdkTexture* textureOfImage(const Image& image);
// Draws a view (and its visible subviews) with the library's drawing into cr, the view's frame
// placed at (0, 0), y running downwards.
void drawViewInto(cairo_t* cr, const View& view, const std::shared_ptr<const NamedImageSource>& images);
// A drawing area that draws `draw` with the area's size.
GtkWidget* drawingWidget(std::function<void(cairo_t*, int width, int height)> draw);
// Installs the style sheet of presented windows once per display.
void installPresenterStyles();

}  // namespace tq
