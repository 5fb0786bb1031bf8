// The names that X and its window managers use, as the numbers of one server.

#ifndef EXAMPLES_WEB_BROWSER_X11_ATOMS_H_
#define EXAMPLES_WEB_BROWSER_X11_ATOMS_H_

#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

struct Atoms {
  explicit Atoms(Connection* connection);

  AtomId net_active_window;
  AtomId net_client_list;
  AtomId net_client_list_stacking;
  AtomId net_current_desktop;
  AtomId net_frame_extents;
  AtomId net_moveresize_window;
  AtomId net_supporting_wm_check;
  AtomId net_wm_desktop;
  AtomId net_wm_name;
  AtomId net_wm_state;
  AtomId net_wm_state_fullscreen;
  AtomId net_wm_state_hidden;
  AtomId net_wm_state_maximized_horz;
  AtomId net_wm_state_maximized_vert;
  AtomId net_wm_state_skip_taskbar;
  AtomId net_wm_strut;
  AtomId net_wm_strut_partial;
  AtomId net_workarea;
  AtomId utf8_string;
  AtomId wm_change_state;
  AtomId wm_state;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_ATOMS_H_
