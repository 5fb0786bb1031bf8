#include "examples/web_browser/x11/atoms.h"

#include <iterator>

#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {

Atoms::Atoms(Connection* connection) {
  struct Name {
    const char* text;
    AtomId Atoms::*member;
  };
  static constexpr Name kNames[] = {
      {"_NET_ACTIVE_WINDOW", &Atoms::net_active_window},
      {"_NET_CLIENT_LIST", &Atoms::net_client_list},
      {"_NET_CLIENT_LIST_STACKING", &Atoms::net_client_list_stacking},
      {"_NET_CURRENT_DESKTOP", &Atoms::net_current_desktop},
      {"_NET_FRAME_EXTENTS", &Atoms::net_frame_extents},
      {"_NET_MOVERESIZE_WINDOW", &Atoms::net_moveresize_window},
      {"_NET_SUPPORTING_WM_CHECK", &Atoms::net_supporting_wm_check},
      {"_NET_WM_DESKTOP", &Atoms::net_wm_desktop},
      {"_NET_WM_NAME", &Atoms::net_wm_name},
      {"_NET_WM_STATE", &Atoms::net_wm_state},
      {"_NET_WM_STATE_FULLSCREEN", &Atoms::net_wm_state_fullscreen},
      {"_NET_WM_STATE_HIDDEN", &Atoms::net_wm_state_hidden},
      {"_NET_WM_STATE_MAXIMIZED_HORZ", &Atoms::net_wm_state_maximized_horz},
      {"_NET_WM_STATE_MAXIMIZED_VERT", &Atoms::net_wm_state_maximized_vert},
      {"_NET_WM_STATE_SKIP_TASKBAR", &Atoms::net_wm_state_skip_taskbar},
      {"_NET_WM_STRUT", &Atoms::net_wm_strut},
      {"_NET_WM_STRUT_PARTIAL", &Atoms::net_wm_strut_partial},
      {"_NET_WORKAREA", &Atoms::net_workarea},
      {"UTF8_STRING", &Atoms::utf8_string},
      {"WM_CHANGE_STATE", &Atoms::wm_change_state},
      {"WM_STATE", &Atoms::wm_state},
  };
  // One round trip for all.
  char* texts[std::size(kNames)];
  Atom atoms[std::size(kNames)];
  for (size_t i = 0; i < std::size(kNames); ++i) {
    texts[i] = const_cast<char*>(kNames[i].text);
  }
  XInternAtoms(connection, texts, std::size(kNames), /*only_if_exists=*/0,
               atoms);
  for (size_t i = 0; i < std::size(kNames); ++i) {
    this->*kNames[i].member = atoms[i];
  }
}

}  // namespace web_browser::x11
