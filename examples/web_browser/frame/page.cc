#include "examples/web_browser/frame/page.h"

#include <algorithm>
#include <array>
#include <utility>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"

namespace web_browser {
namespace {

constexpr double kZoomStep = 1.1;
constexpr double kMinZoom = 0.25;
constexpr double kMaxZoom = 5;

// Keeps nothing on disk, and gives every page a process of its own.
WebKitWebContext* Context() {
  static WebKitWebContext* const context = [] {
    WebKitMemoryPressureSettings* memory =
        webkit_memory_pressure_settings_new();
    webkit_memory_pressure_settings_set_memory_limit(
        memory, static_cast<guint>(Page::kMaxPageBytes >> 20));
    webkit_memory_pressure_settings_set_kill_threshold(memory, 1.0);
    webkit_memory_pressure_settings_set_poll_interval(
        memory, Page::kSecondsBetweenLooks);
    WebKitWebsiteDataManager* data =
        webkit_website_data_manager_new_ephemeral();
    auto* made = WEBKIT_WEB_CONTEXT(
        g_object_new(WEBKIT_TYPE_WEB_CONTEXT, "website-data-manager", data,
                     "memory-pressure-settings", memory, nullptr));
    g_object_unref(data);
    webkit_memory_pressure_settings_free(memory);
    g_signal_connect(
        made, "download-started",
        G_CALLBACK(+[](WebKitWebContext*, WebKitDownload* download, gpointer) {
          webkit_download_cancel(download);
        }),
        nullptr);
    return made;
  }();
  return context;
}

// What a person may mean by `text`.
std::string UrlOf(const std::string& text) {
  if (absl::StartsWith(text, "/")) {
    // With what means something else in a URL escaped: # and ?, and %.
    gchar* const url = g_filename_to_uri(text.c_str(), nullptr, nullptr);
    std::string url_of_file = url;
    g_free(url);
    return url_of_file;
  }
  gchar* const scheme = g_uri_parse_scheme(text.c_str());
  const bool has_scheme = scheme != nullptr;
  g_free(scheme);
  return has_scheme ? text : absl::StrCat("https://", text);
}

}  // namespace

Page::Page(PageObserver& observer)
    : observer_(observer),
      view_(WEBKIT_WEB_VIEW(webkit_web_view_new_with_context(Context()))) {
  g_object_ref_sink(view_);
  auto changed = G_CALLBACK(+[](WebKitWebView*, GParamSpec*, Page* page) {
    page->observer_.OnPageChanged();
  });
  g_signal_connect(view_, "notify::title", changed, this);
  g_signal_connect(view_, "notify::is-web-process-responsive", changed, this);
  g_signal_connect(view_, "close", G_CALLBACK(+[](WebKitWebView*, Page* page) {
                     page->observer_.OnPageCloses();
                   }),
                   this);
  g_signal_connect(
      view_, "context-menu",
      G_CALLBACK(+[](WebKitWebView*, WebKitContextMenu*, GdkEvent* event,
                     WebKitHitTestResult*, Page* page) -> gboolean {
        gdouble x = 0;
        gdouble y = 0;
        gdk_event_get_coords(event, &x, &y);
        page->observer_.OnPageMenu(static_cast<int>(x), static_cast<int>(y),
                                   event);
        return TRUE;
      }),
      this);
  g_signal_connect(
      view_, "create",
      G_CALLBACK(+[](WebKitWebView*, WebKitNavigationAction* action,
                     Page* page) -> GtkWidget* {
        // In a process of its own, which a window that is related to this page
        // would not have. Only for a click.
        if (webkit_navigation_action_is_user_gesture(action)) {
          page->observer_.OnPageOpens(webkit_uri_request_get_uri(
              webkit_navigation_action_get_request(action)));
        }
        return nullptr;
      }),
      this);
  g_signal_connect(
      view_, "web-process-terminated",
      G_CALLBACK(+[](WebKitWebView*, WebKitWebProcessTerminationReason reason,
                     Page* page) { page->OnTerminated(reason); }),
      this);
}

Page::~Page() {
  g_signal_handlers_disconnect_by_data(view_, this);
  g_object_unref(view_);
}

void Page::Load(const std::string& url) {
  webkit_web_view_load_uri(view_, UrlOf(url).c_str());
}

std::string Page::title() const {
  const gchar* const title = webkit_web_view_get_title(view_);
  return title == nullptr ? "" : title;
}

bool Page::is_responsive() const {
  return webkit_web_view_get_is_web_process_responsive(view_);
}

void Page::Execute(const std::string& command) {
  if (command == "back")
    return webkit_web_view_go_back(view_);
  if (command == "forward")
    return webkit_web_view_go_forward(view_);
  if (command == "reload") {
    // A page that hangs would not hear of it.
    if (!is_responsive())
      webkit_web_view_terminate_web_process(view_);
    return webkit_web_view_reload(view_);
  }
  if (command == "copy")
    return webkit_web_view_execute_editing_command(view_,
                                                   WEBKIT_EDITING_COMMAND_COPY);
  if (command == "paste")
    return webkit_web_view_execute_editing_command(
        view_, WEBKIT_EDITING_COMMAND_PASTE);
  if (command == "print")
    return Print();
  if (command == "zoom_in")
    return Zoom(kZoomStep);
  if (command == "zoom_out")
    return Zoom(1 / kZoomStep);
  if (command == "zoom_reset")
    webkit_web_view_set_zoom_level(view_, 1);
}

void Page::Find(const std::string& text, bool forwards) {
  WebKitFindController* const finder =
      webkit_web_view_get_find_controller(view_);
  if (text.empty())
    return webkit_find_controller_search_finish(finder);
  const guint32 direction = forwards ? 0 : WEBKIT_FIND_OPTIONS_BACKWARDS;
  webkit_find_controller_search(finder, text.c_str(),
                                WEBKIT_FIND_OPTIONS_CASE_INSENSITIVE |
                                    WEBKIT_FIND_OPTIONS_WRAP_AROUND | direction,
                                G_MAXUINT);
}

void Page::SetBackgroundAlpha(double alpha) {
  const GdkRGBA colour = {1, 1, 1, alpha};
  webkit_web_view_set_background_color(view_, &colour);
}

void Page::Print() {
  WebKitPrintOperation* const operation = webkit_print_operation_new(view_);
  webkit_print_operation_run_dialog(
      operation, GTK_WINDOW(gtk_widget_get_toplevel(widget())));
  g_object_unref(operation);
}

void Page::Zoom(double factor) {
  webkit_web_view_set_zoom_level(
      view_, std::clamp(webkit_web_view_get_zoom_level(view_) * factor,
                        kMinZoom, kMaxZoom));
}

// The new page stands for the lost one: "reload" loads that again.
void Page::OnTerminated(WebKitWebProcessTerminationReason reason) {
  // By Execute(), which goes on with another one.
  if (reason == WEBKIT_WEB_PROCESS_TERMINATED_BY_API)
    return;
  const char* const why = reason == WEBKIT_WEB_PROCESS_EXCEEDED_MEMORY_LIMIT
                              ? "This page has used too much memory."
                              : "This page has crashed.";
  const gchar* const url = webkit_web_view_get_uri(view_);
  webkit_web_view_load_alternate_html(
      view_,
      absl::StrCat("<title>", why, "</title><h1>", why, "</h1>",
                   "<p>Reload it to try again.</p>")
          .c_str(),
      url == nullptr ? "about:blank" : url, nullptr);
  observer_.OnPageChanged();
}

}  // namespace web_browser
