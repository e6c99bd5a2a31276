// GtkPresenter: the top-level objects of a loaded interface as live GTK 4 widgets.
//
//   auto objects = tq::loadNibWithName(u"Monitor", controller);
//   tq::TQLocalizer::localizeObjects(objects, u"Monitor", bundle);
//   auto presenter = std::make_shared<tq::GtkPresenter>(objects, options);
//   presenter->showWindow(*window);        // a Window among the objects
//   // ... the host's GLib main loop runs; actions reach the controller's handlers
//
// What each model object becomes:
//   Window, Panel          GtkWindow: the title (in a GtkHeaderBar when options.headerBar), the
//                          content size as its natural size, the minimum size, resizable and
//                          deletable as the style mask says; the main menu as a GtkPopoverMenuBar
//                          above the content, the toolbar as a row of buttons under it.
//   plain views            a TqFrameBox placing its subviews at their frames (y converted from
//                          bottom-up where the superview is not flipped); when the box changes
//                          size (the window is resized), the subviews' frames change by their
//                          autoresizing masks, in the model too, as the platform resized them.
//                          Views laid out by constraints alone keep their archived frames: the
//                          constraints are not solved.
//   Button                 GtkButton (push, bevel and image buttons, with the image named from
//                          options.images), GtkCheckButton (check boxes; radio buttons, grouped
//                          with the radio buttons of the same superview and action),
//                          GtkToggleButton (push-on/push-off, toggle and on/off types)
//   PopUpButton            GtkDropDown of the menu's visible items; pull-down buttons as a
//                          GtkMenuButton titled by the first item, with the others in its menu
//   TextField              GtkLabel when it cannot be edited, else GtkEntry (GtkPasswordEntry for
//                          "NSSecureTextField", GtkSearchEntry for a SearchField), placeholders kept
//   ComboBox               GtkComboBoxText with an entry: the items, the string value in the entry
//   "NSSlider"             GtkScale (circular sliders are drawn, see below)
//   "NSStepper"            two small GtkButtons with up and down arrows, stepping by 1
//   "NSLevelIndicator"     GtkLevelBar (continuous and discrete capacity styles)
//   ProgressIndicator      GtkProgressBar, or GtkSpinner for the spinning style
//   Matrix                 its cells as the widgets above (radio cells grouped), at their frames
//   SegmentedControl       a linked row of GtkToggleButtons (GtkButtons when momentary)
//   TabView                GtkNotebook, one page per item (hidden tabs when the type has none)
//   Box                    GtkFrame with its title (no title when its position is NoTitle),
//                          GtkSeparator for separators; its content view at its frame
//   "NSSplitView"          GtkPaned (nested for more than two panes)
//   ScrollView             GtkScrolledWindow around its document view
//   TableView, OutlineView GtkColumnView with a column per visible table column (its header
//                          title and width), rows from a TableDataSource, each cell drawn by a
//                          copy of the column's data cell (see table_data_source.h)
//   ImageView              GtkPicture of the named image
//   TextView               GtkTextView with its text
//   Menu (main menu)       GtkPopoverMenuBar; key equivalents as shortcuts of the window (command
//                          and control as Ctrl, option as Alt, shift as Shift)
// A view hidden when its window is built gets its widgets when it is first shown; a pull-down's
// menu is made when it is first opened.
// Stack and grid views place their views at their archived frames, as plain views do.
// Everything else with a frame (custom views without subviews, date pickers, colour wells, path
// controls, rule editors, circular sliders, rating indicators, views known only by class name) is drawn by the
// library's own view drawing (drawViewHierarchy) in a GtkDrawingArea at its frame; nothing the
// model holds is left out. fallbackClassNames() lists which classes went that way.
//
// Values, both ways. What the user does changes the model at once: a check box's or radio
// button's state, a field's string value (as each character is typed), a slider's or stepper's
// value, a pop-up's selected item, a segment's selection, a tab view's selected item. What the host
// sets on the model (string value, state, enabled, hidden, title, frame, selected item or tab, a
// value of a slider or indicator, a window's title) shows in the widgets before the main loop next
// waits: the presenter compares the model with what it last showed each time the GLib main context
// of the thread that made it iterates. synchronize() does the same at once.
//
// Actions. A button clicked, a check box or radio button toggled, Return in a field, a slider
// moved, a stepper stepped, an item chosen from a pop-up, pull-down or the main menu, a segment
// clicked, a table row selected: the control's (or menu item's) action is sent with the control
// as sender (see sendAction()). Setting values from the model sends no action.
//
// Ownership: the presenter keeps the top-level objects (and through them the whole interface)
// alive while it lives, and the widgets it made: destroying it destroys its windows. Widgets refer
// to the model by plain pointers; the model must not be taken apart while presented.
// Threads: GTK's thread (the one that called gtk_init()), which must iterate its default main
// context; all calls from that thread.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <vector>

#include "tq/gtk/table_data_source.h"
#include "tq/platform/base/object.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/window.h"

namespace tq {

struct GtkPresenterOptions {
  // The File's Owner the interface was loaded with: it receives the actions connected to it, and
  // comes in the responder chain after the window.
  ObjectRef owner;
  // The object standing for the application: the end of the responder chain.
  ObjectRef application;
  // Where named images (buttons, image views, toolbar items) come from; nil: the drawing's
  // stand-ins for the platform's template images, grey placeholders for the rest.
  std::shared_ptr<const NamedImageSource> images;
  // The menu shown as a menu bar in each window; nil: the first top-level Menu whose systemMenu()
  // is "main", if any.
  std::shared_ptr<Menu> mainMenu;
  // Titled windows get a GtkHeaderBar showing their title (a title bar drawn by GTK on every
  // desktop, also without a window manager); false leaves decorations to the window manager.
  bool headerBar = true;
};

class GtkPresenter : public Object {
 public:
  // Takes the top-level objects of one interface (in any order; others than windows, views and
  // menus are kept and ignored). gtk_init() must have succeeded. Builds nothing yet.
  explicit GtkPresenter(std::vector<ObjectRef> topLevelObjects, GtkPresenterOptions options = {});
  // Destroys every window and widget the presenter made.
  ~GtkPresenter() override;
  GtkPresenter(const GtkPresenter&) = delete;
  GtkPresenter& operator=(const GtkPresenter&) = delete;

  const std::vector<ObjectRef>& topLevelObjects() const;
  // The windows and top-level views, in the order of the top-level objects: what can be shown.
  std::vector<ObjectRef> presentableObjects() const;

  // The GtkWindow of a window (made on the first call, not shown), or of a top-level view, shown in
  // a window of its own with no title. nullptr for an object that is not one of the top-level
  // windows or views. The presenter owns it.
  GtkWindow* gtkWindow(const InterfaceObject& windowOrView);
  // The same, shown (gtk_window_present).
  GtkWindow* showWindow(const InterfaceObject& windowOrView);
  // A top-level view's widget tree for the host to place in its own widgets (made on the first
  // call; the host's container then holds it). nullptr for other objects.
  GtkWidget* widgetForView(const View& view);

  // The widget made for a view, table column or window (its GtkWindow), or nullptr (also for a view
  // that has been hidden since its window was built).
  GtkWidget* widgetFor(const InterfaceObject& object) const;
  // The model object a widget was made for, or nullptr.
  InterfaceObject* objectForWidget(GtkWidget* widget) const;

  // --- tables -------------------------------------------------------------------------------------
  // Gives a table (or outline) view its rows; nil shows none. The table is reloaded.
  void setDataSource(TableView& table, std::shared_ptr<TableDataSource> source);
  // Asks the data source for the number of rows and every visible cell again.
  void reloadData(TableView& table);
  // The selected row, -1 for none; selecting -1 clears the selection. Selecting sends no action.
  long selectedRow(const TableView& table) const;
  void selectRow(TableView& table, long row);

  // --- actions ------------------------------------------------------------------------------------
  // Sends an action as the interface does: to `target` when it is not nil (it must handle the
  // selector, else nothing happens), else along the responder chain of the window `sender` is in
  // (or of the window the menu bar that holds it is in): the view with the keyboard focus and its
  // superviews up to the content view, the window, the owner, the application, then the responders
  // added with addResponder() in order; the first that handles the selector receives it. Answers
  // whether an object handled it.
  bool sendAction(const String& selector, const ObjectRef& target, const ObjectRef& sender);
  // Appends an object to the end of the responder chain (kept alive by the presenter).
  void addResponder(ObjectRef responder);
  // Called after each action an object handled, with the selector, the sender and that object.
  using ActionObserver = std::function<void(const String& selector, const ObjectRef& sender, const ObjectRef& handler)>;
  void setActionObserver(ActionObserver observer);

  // --- the model shown ----------------------------------------------------------------------------
  // Shows in the widgets what changed in the model since they were last brought up to date.
  void synchronize();
  // The class names of the views drawn by the library's drawing for want of a native widget, one
  // per view in the order they were made.
  std::vector<String> fallbackClassNames() const;
  // Called when the user closes a window (which is then hidden, not destroyed).
  void setWindowClosedHandler(std::function<void(const InterfaceObject& window)> handler);

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace tq
