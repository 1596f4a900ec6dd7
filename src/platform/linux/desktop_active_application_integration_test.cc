// The application a screenshot shows, asked of a real X server: the window
// a window manager marks active, else the one with the keyboard focus; and
// nothing at all where no desktop runs.
#include "platform/linux/desktop_active_application.h"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <cstring>
#include <map>

#include "platform/linux/testing/virtual_screen.h"

namespace klipora {
namespace {

xcb_atom_t Atom(xcb_connection_t* c, const char* name) {
  auto* reply = xcb_intern_atom_reply(
      c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
  xcb_atom_t atom = reply->atom;
  free(reply);
  return atom;
}

TEST(DesktopActiveApplicationTest, TheActiveWindowsClassAndTitleNameTheApplication) {
  testing::VirtualScreen screen;
  ASSERT_FALSE(screen.display().empty()) << "Xvfb did not start (is the xvfb package installed?)";
  std::map<std::string, std::string> environment{{"DISPLAY", screen.display()}};
  DesktopActiveApplication active([&](const char* name) -> const char* {
    auto it = environment.find(name);
    return it == environment.end() ? nullptr : it->second.c_str();
  });
  EXPECT_FALSE(active.current());  // no window at all

  // A terminal's window, made active the way a window manager does.
  xcb_connection_t* c = xcb_connect(screen.display().c_str(), nullptr);
  ASSERT_EQ(xcb_connection_has_error(c), 0) << "display " << screen.display();
  xcb_screen_t* root = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
  xcb_window_t window = xcb_generate_id(c);
  xcb_create_window(c, XCB_COPY_FROM_PARENT, window, root->root, 0, 0, 100, 100, 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, root->root_visual, 0, nullptr);
  const char wmClass[] = "gnome-terminal-server\0Gnome-terminal";
  xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                      sizeof wmClass, wmClass);
  const std::string title = "user@host: ~/projects";
  xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, Atom(c, "_NET_WM_NAME"),
                      Atom(c, "UTF8_STRING"), 8, static_cast<uint32_t>(title.size()),
                      title.data());
  xcb_change_property(c, XCB_PROP_MODE_REPLACE, root->root, Atom(c, "_NET_ACTIVE_WINDOW"),
                      XCB_ATOM_WINDOW, 32, 1, &window);
  xcb_map_window(c, window);
  free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));  // a round trip
  auto app = active.current();
  ASSERT_TRUE(app);
  EXPECT_EQ(app->id, "Gnome-terminal");
  EXPECT_EQ(app->name, title);

  // Without a window manager: the window with the focus.
  xcb_delete_property(c, root->root, Atom(c, "_NET_ACTIVE_WINDOW"));
  xcb_set_input_focus(c, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
  free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
  app = active.current();
  ASSERT_TRUE(app);
  EXPECT_EQ(app->id, "Gnome-terminal");
  xcb_disconnect(c);

  // No desktop, or one that does not answer: nothing, at once.
  environment = {{"SWAYSOCK", "/nonexistent/sway.sock"},
                 {"HYPRLAND_INSTANCE_SIGNATURE", "none"},
                 {"XDG_RUNTIME_DIR", "/nonexistent"}};
  EXPECT_FALSE(active.current());
}

}  // namespace
}  // namespace klipora
