#include "examples/web_browser/frame/frame.h"

#include <gdk/gdkx.h>
// Behind gdkx.h, whose macros it takes away.
#include "examples/web_browser/x11/xlib.h"

#include <array>
#include <utility>

#include "absl/strings/str_cat.h"

namespace web_browser {
namespace {

using window_host::WindowAction;

// The minimum size leaves little room for the header bar.
constexpr char kStyleSheet[] = R"(
  .header { min-height: 30px; padding: 0 2px; border-radius: 0; }
  .header button { min-width: 20px; min-height: 20px; padding: 1px; margin: 0; }
  .unresponsive .header { opacity: 0.5; }
  .utility .header { min-height: 18px; }
  .utility .header button { min-width: 14px; min-height: 14px; padding: 0; }
  window.vibrant, window.vibrant .header { background: transparent; }
)";

struct Command {
  const char* name;
  const char* label;
  // No key: 0.
  guint key;
  guint modifiers;
};

// The commands as the user sees them. A key may stand here more than once.
constexpr Command kCommands[] = {
    {"back", "Back", GDK_KEY_Left, GDK_MOD1_MASK},
    {"forward", "Forward", GDK_KEY_Right, GDK_MOD1_MASK},
    {"reload", "Reload", GDK_KEY_r, GDK_CONTROL_MASK},
    {"copy", "Copy", GDK_KEY_c, GDK_CONTROL_MASK},
    {"paste", "Paste", GDK_KEY_v, GDK_CONTROL_MASK},
    {"print", "Print…", GDK_KEY_p, GDK_CONTROL_MASK},
    {"find", "Find…", GDK_KEY_f, GDK_CONTROL_MASK},
    {"zoom_in", "Zoom In", GDK_KEY_plus, GDK_CONTROL_MASK},
    {"zoom_out", "Zoom Out", GDK_KEY_minus, GDK_CONTROL_MASK},
    {"zoom_reset", "Normal Size", GDK_KEY_0, GDK_CONTROL_MASK},
    {"new_window", "New Window", GDK_KEY_n, GDK_CONTROL_MASK},
    {"close_window", "Close Window", GDK_KEY_w, GDK_CONTROL_MASK},
};

// Other keys for the same.
constexpr Command kMoreKeys[] = {
    {"reload", nullptr, GDK_KEY_F5, 0},
    {"zoom_in", nullptr, GDK_KEY_equal, GDK_CONTROL_MASK},
    {"zoom_in", nullptr, GDK_KEY_KP_Add, GDK_CONTROL_MASK},
    {"zoom_out", nullptr, GDK_KEY_KP_Subtract, GDK_CONTROL_MASK},
};

bool IsOfKey(const Command& command, guint key, guint modifiers) {
  return command.key == key && command.modifiers == modifiers;
}

const char* CommandOfKey(const GdkEventKey& event) {
  // Shift is part of which key it is, as with plus.
  const guint modifiers =
      event.state & (GDK_CONTROL_MASK | GDK_MOD1_MASK | GDK_SUPER_MASK);
  const guint key = gdk_keyval_to_lower(event.keyval);
  for (const Command& command : kCommands) {
    if (IsOfKey(command, key, modifiers))
      return command.name;
  }
  for (const Command& command : kMoreKeys) {
    if (IsOfKey(command, key, modifiers))
      return command.name;
  }
  return nullptr;
}

const char* LabelOf(const std::string& name) {
  for (const Command& command : kCommands) {
    if (command.name == name)
      return command.label;
  }
  return name.c_str();
}

std::vector<std::string> AllCommands() {
  std::vector<std::string> names;
  for (const Command& command : kCommands)
    names.emplace_back(command.name);
  return names;
}

void ApplyStyleSheet() {
  static const bool applied = [] {
    GtkCssProvider* const provider = gtk_css_provider_new();
    gtk_css_provider_load_from_data(provider, kStyleSheet, -1, nullptr);
    gtk_style_context_add_provider_for_screen(
        gdk_screen_get_default(), GTK_STYLE_PROVIDER(provider),
        GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(provider);
    return true;
  }();
  static_cast<void>(applied);
}

void SetClass(GtkWidget* widget, const char* name, bool has) {
  GtkStyleContext* const style = gtk_widget_get_style_context(widget);
  if (has)
    gtk_style_context_add_class(style, name);
  else
    gtk_style_context_remove_class(style, name);
}

// Such as the one for printing, which is WebKit's, and else would stay behind,
// and keep the loop in which it waits.
void EndDialogsOf(GtkWidget* window) {
  GList* const toplevels = gtk_window_list_toplevels();
  // Their owners may let go of them now, or only when their loop is over.
  g_list_foreach(
      toplevels, +[](gpointer toplevel, gpointer) { g_object_ref(toplevel); },
      nullptr);
  for (const GList* at = toplevels; at != nullptr; at = at->next) {
    auto* const toplevel = static_cast<GtkWindow*>(at->data);
    if (GTK_IS_DIALOG(toplevel) &&
        gtk_window_get_transient_for(toplevel) == GTK_WINDOW(window)) {
      gtk_dialog_response(GTK_DIALOG(toplevel), GTK_RESPONSE_CANCEL);
      gtk_widget_hide(GTK_WIDGET(toplevel));
    }
  }
  g_list_free_full(toplevels, g_object_unref);
}

}  // namespace

int DisplayScale() {
  return gdk_window_get_scale_factor(gdk_get_default_root_window());
}

Frame::Frame(int64_t id, FrameObserver& observer)
    : id_(id),
      observer_(observer),
      window_(gtk_window_new(GTK_WINDOW_TOPLEVEL)),
      page_(*this),
      find_bar_(page_),
      rows_(gtk_box_new(GTK_ORIENTATION_VERTICAL, 0)),
      overlay_(gtk_overlay_new()),
      handle_(gtk_event_box_new()),
      header_(gtk_header_bar_new()),
      title_(gtk_label_new(nullptr)),
      press_(gtk_gesture_multi_press_new(window_)) {
  ApplyStyleSheet();
  GtkWindow* const window = GTK_WINDOW(window_);
  gtk_window_set_decorated(window, FALSE);
  gtk_window_set_role(window, absl::StrCat("window-", id).c_str());
  // Chosen now, for a background that is seen through later.
  GdkVisual* const visual =
      gdk_screen_get_rgba_visual(gtk_widget_get_screen(window_));
  if (visual != nullptr)
    gtk_widget_set_visual(window_, visual);

  BuildHeader();
  gtk_container_add(GTK_CONTAINER(overlay_), page_.widget());
  gtk_box_pack_start(GTK_BOX(rows_), handle_, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(rows_), find_bar_.widget(), FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(rows_), overlay_, TRUE, TRUE, 0);
  gtk_container_add(GTK_CONTAINER(window_), rows_);
  gtk_widget_show_all(rows_);

  g_signal_connect(
      window_, "delete-event",
      G_CALLBACK(+[](GtkWidget*, GdkEvent*, Frame* frame) -> gboolean {
        frame->observer_.OnCloseWanted(frame->id_);
        return TRUE;
      }),
      this);
  g_signal_connect(
      window_, "key-press-event",
      G_CALLBACK(+[](GtkWidget*, GdkEventKey* event, Frame* frame) -> gboolean {
        return frame->OnKey(event);
      }),
      this);
  g_signal_connect(window_, "set-focus",
                   G_CALLBACK(+[](GtkWidget*, GtkWidget*, Frame* frame) {
                     frame->observer_.OnFrameChanged(frame->id_);
                   }),
                   this);
  // Before whatever is pressed hears of it.
  gtk_event_controller_set_propagation_phase(GTK_EVENT_CONTROLLER(press_),
                                             GTK_PHASE_CAPTURE);
  gtk_gesture_single_set_button(GTK_GESTURE_SINGLE(press_), 0);
  g_signal_connect(
      press_, "pressed",
      G_CALLBACK(+[](GtkGesture*, gint, gdouble, gdouble, Frame* frame) {
        frame->page_may_open_another_ = true;
        frame->observer_.OnActionWanted(frame->id_, WindowAction::kActivate);
      }),
      this);
  // The user's time of a window that maps is not the present one: the service
  // says which window is active.
  gtk_window_set_focus_on_map(window, FALSE);
  gtk_widget_realize(window_);
  // No group of windows: window managers keep utility windows above their
  // group, and bring all of them back when another window of it comes back.
  GdkWindow* const toplevel = gtk_widget_get_window(window_);
  gdk_window_set_group(toplevel, toplevel);
  g_signal_connect(
      gdk_window_get_frame_clock(gtk_widget_get_window(window_)), "after-paint",
      G_CALLBACK(+[](GdkFrameClock*, Frame* frame) {
        if (frame->awaiting_paint_.empty())
          return;
        // Until the server has drawn it, others see what was.
        gdk_display_sync(gdk_display_get_default());
        for (auto& painted : std::exchange(frame->awaiting_paint_, {})) {
          painted();
        }
      }),
      this);
  gtk_widget_grab_focus(page_.widget());
}

Frame::~Frame() {
  g_signal_handlers_disconnect_by_data(window_, this);
  g_signal_handlers_disconnect_by_data(
      gdk_window_get_frame_clock(gtk_widget_get_window(window_)), this);
  g_object_unref(press_);
  if (menu_ != nullptr)
    gtk_widget_destroy(menu_);
  if (menu_event_ != nullptr)
    gdk_event_free(menu_event_);
  EndDialogsOf(window_);
  gtk_widget_destroy(window_);
  // Until the server knows it, others would still see the window.
  gdk_display_sync(gdk_display_get_default());
}

unsigned long Frame::xid() const {
  return gdk_x11_window_get_xid(gtk_widget_get_window(window_));
}

int Frame::scale() const {
  return gtk_widget_get_scale_factor(window_);
}

void Frame::AwaitPaint(std::function<void()> painted) {
  awaiting_paint_.push_back(std::move(painted));
  gtk_widget_queue_draw(window_);
}

void Frame::Map(const window_host::Rect& bounds) {
  GtkWindow* const window = GTK_WINDOW(window_);
  gtk_window_resize(window, bounds.width, bounds.height);
  // It would come back minimized.
  gtk_window_deiconify(window);
  // Before each time, since the toolkit forgets it.
  gtk_window_move(window, bounds.x, bounds.y);
  gtk_widget_show(window_);
  gdk_display_flush(gdk_display_get_default());
}

void Frame::Unmap() {
  gtk_widget_hide(window_);
  gdk_display_flush(gdk_display_get_default());
}

void Frame::SetTitle(const std::string& title) {
  gtk_label_set_text(GTK_LABEL(title_), title.c_str());
  gtk_window_set_title(GTK_WINDOW(window_), title.c_str());
  gdk_display_sync(gdk_display_get_default());
}

void Frame::SetStyle(const Style& style) {
  style_ = style;
  const rpc::WindowStyleFlags& flags = style.flags;
  gtk_widget_set_visible(handle_, style.titlebar_visible && flags.titled());
  gtk_widget_set_visible(title_, style.title_visible);
  const auto set_button = [&](GtkWidget* button, rpc::WindowButton::Kind kind,
                              bool can) {
    gtk_widget_set_visible(button, !style.hidden_buttons.contains(kind));
    gtk_widget_set_sensitive(button, can);
  };
  set_button(close_, rpc::WindowButton::KIND_CLOSE, flags.closable());
  set_button(minimize_, rpc::WindowButton::KIND_MINIMIZE, flags.minimizable());
  set_button(maximize_, rpc::WindowButton::KIND_MAXIMIZE, flags.resizable());
  SetClass(window_, "utility", flags.utility());
  PlaceHeader(flags.full_size_content());
}

void Frame::SetUtility(bool utility) {
  gtk_window_set_type_hint(
      GTK_WINDOW(window_),
      utility ? GDK_WINDOW_TYPE_HINT_UTILITY : GDK_WINDOW_TYPE_HINT_NORMAL);
}

bool Frame::is_utility() const {
  return gtk_window_get_type_hint(GTK_WINDOW(window_)) ==
         GDK_WINDOW_TYPE_HINT_UTILITY;
}

void Frame::SetMaximized(bool maximized) {
  if (maximized_ == maximized)
    return;
  maximized_ = maximized;
  gtk_image_set_from_icon_name(
      GTK_IMAGE(gtk_button_get_image(GTK_BUTTON(maximize_))),
      maximized ? "window-restore-symbolic" : "window-maximize-symbolic",
      GTK_ICON_SIZE_MENU);
}

void Frame::SetOpacityOfBackground(double alpha) {
  SetClass(window_, "vibrant", alpha < 1);
  gtk_widget_set_app_paintable(window_, alpha < 1);
  page_.SetBackgroundAlpha(alpha);
}

void Frame::FocusPage() {
  gtk_widget_grab_focus(page_.widget());
}

bool Frame::page_has_focus() const {
  return gtk_window_get_focus(GTK_WINDOW(window_)) == page_.widget();
}

void Frame::OpenMenu(int x, int y, const std::vector<std::string>& commands) {
  if (menu_ != nullptr)
    gtk_widget_destroy(menu_);
  menu_ = MakeMenu(commands);
  gtk_menu_attach_to_widget(GTK_MENU(menu_), window_, nullptr);
  const GdkRectangle place = {x, y, 1, 1};
  gtk_menu_popup_at_rect(GTK_MENU(menu_), gtk_widget_get_window(window_),
                         &place, GDK_GRAVITY_SOUTH_EAST, GDK_GRAVITY_NORTH_WEST,
                         menu_event_);
}

void Frame::BuildHeader() {
  SetClass(header_, "header", true);
  gtk_label_set_ellipsize(GTK_LABEL(title_), PANGO_ELLIPSIZE_END);
  SetClass(title_, "title", true);
  gtk_header_bar_set_has_subtitle(GTK_HEADER_BAR(header_), FALSE);
  g_object_set(header_, "spacing", 1, nullptr);
  gtk_header_bar_set_custom_title(GTK_HEADER_BAR(header_), title_);

  menu_button_ = gtk_menu_button_new();
  gtk_menu_button_set_popup(GTK_MENU_BUTTON(menu_button_),
                            MakeMenu(AllCommands()));
  gtk_header_bar_pack_start(GTK_HEADER_BAR(header_), menu_button_);
  close_ = AddButton("window-close-symbolic", "Close");
  maximize_ = AddButton("window-maximize-symbolic", "Maximize");
  minimize_ = AddButton("window-minimize-symbolic", "Minimize");
  gtk_container_add(GTK_CONTAINER(handle_), header_);

  g_signal_connect(close_, "clicked", G_CALLBACK(+[](GtkWidget*, Frame* frame) {
                     frame->observer_.OnCloseWanted(frame->id_);
                   }),
                   this);
  g_signal_connect(
      minimize_, "clicked", G_CALLBACK(+[](GtkWidget*, Frame* frame) {
        frame->observer_.OnActionWanted(frame->id_, WindowAction::kMinimize);
      }),
      this);
  g_signal_connect(
      maximize_, "clicked",
      G_CALLBACK(+[](GtkWidget*, Frame* frame) { frame->OnMaximizeClicked(); }),
      this);
  g_signal_connect(handle_, "button-press-event",
                   G_CALLBACK(+[](GtkWidget*, GdkEventButton* event,
                                  Frame* frame) -> gboolean {
                     return frame->OnHeaderPress(event);
                   }),
                   this);
}

GtkWidget* Frame::AddButton(const char* icon, const char* tooltip) {
  GtkWidget* const button =
      gtk_button_new_from_icon_name(icon, GTK_ICON_SIZE_MENU);
  gtk_widget_set_tooltip_text(button, tooltip);
  gtk_widget_set_focus_on_click(button, FALSE);
  gtk_header_bar_pack_end(GTK_HEADER_BAR(header_), button);
  return button;
}

void Frame::PlaceHeader(bool above_page) {
  if (header_is_above_page_ == above_page)
    return;
  header_is_above_page_ = above_page;
  g_object_ref(handle_);
  gtk_container_remove(GTK_CONTAINER(gtk_widget_get_parent(handle_)), handle_);
  if (above_page) {
    gtk_widget_set_valign(handle_, GTK_ALIGN_START);
    gtk_overlay_add_overlay(GTK_OVERLAY(overlay_), handle_);
  } else {
    gtk_widget_set_valign(handle_, GTK_ALIGN_FILL);
    gtk_box_pack_start(GTK_BOX(rows_), handle_, FALSE, FALSE, 0);
    gtk_box_reorder_child(GTK_BOX(rows_), handle_, 0);
  }
  g_object_unref(handle_);
}

GtkWidget* Frame::MakeMenu(const std::vector<std::string>& commands) {
  GtkWidget* const menu = gtk_menu_new();
  for (const std::string& command : commands) {
    GtkWidget* const item = gtk_menu_item_new_with_label(LabelOf(command));
    // The name, for the handler, lives as long as the item.
    g_object_set_data_full(G_OBJECT(item), "command", g_strdup(command.c_str()),
                           &g_free);
    g_signal_connect(
        item, "activate", G_CALLBACK(+[](GtkWidget* item, Frame* frame) {
          frame->observer_.OnCommandWanted(
              frame->id_, static_cast<const char*>(
                              g_object_get_data(G_OBJECT(item), "command")));
        }),
        this);
    gtk_menu_shell_append(GTK_MENU_SHELL(menu), item);
  }
  gtk_widget_show_all(menu);
  return menu;
}

gboolean Frame::OnKey(GdkEventKey* event) {
  page_may_open_another_ = true;
  const char* const command = CommandOfKey(*event);
  if (command == nullptr)
    return FALSE;
  // Who types into the find bar copies and pastes there.
  const std::string name = command;
  if ((name == "copy" || name == "paste") && !page_has_focus())
    return FALSE;
  observer_.OnCommandWanted(id_, name);
  return TRUE;
}

gboolean Frame::OnHeaderPress(GdkEventButton* event) {
  // A button hands on the second press of a double click, which is none on the
  // bar.
  if (event->window != gtk_widget_get_window(handle_))
    return FALSE;
  if (event->button != GDK_BUTTON_PRIMARY)
    return FALSE;
  if (event->type == GDK_2BUTTON_PRESS) {
    if (style_.flags.resizable())
      OnMaximizeClicked();
    return TRUE;
  }
  if (event->type != GDK_BUTTON_PRESS)
    return FALSE;
  gtk_window_begin_move_drag(GTK_WINDOW(window_),
                             static_cast<gint>(event->button),
                             static_cast<gint>(event->x_root),
                             static_cast<gint>(event->y_root), event->time);
  return TRUE;
}

void Frame::OnMaximizeClicked() {
  observer_.OnActionWanted(
      id_, maximized_ ? WindowAction::kRestore : WindowAction::kMaximize);
}

void Frame::OnPageChanged() {
  SetClass(window_, "unresponsive", !page_.is_responsive());
  observer_.OnFrameChanged(id_);
}

void Frame::OnPageCloses() {
  observer_.OnCloseWanted(id_);
}

void Frame::OnPageMenu(int x, int y, const GdkEvent* event) {
  if (menu_event_ != nullptr)
    gdk_event_free(menu_event_);
  menu_event_ = gdk_event_copy(event);
  int window_x = 0;
  int window_y = 0;
  gtk_widget_translate_coordinates(page_.widget(), window_, x, y, &window_x,
                                   &window_y);
  observer_.OnMenuWanted(id_, window_x, window_y);
}

void Frame::OnPageOpens(const std::string& url) {
  if (std::exchange(page_may_open_another_, false))
    observer_.OnPageWanted(url);
}

}  // namespace web_browser
