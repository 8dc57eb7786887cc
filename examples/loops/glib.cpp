// The SDK on GLib's main loop, as in a GTK application.

#include <glib-unix.h>

#include "Talk.h"

namespace {

//! [poll]
gboolean pollSdk(gpointer) {
  KRRunLoop::main().poll();
  return G_SOURCE_REMOVE;
}
//! [poll]

}  // namespace

int main(int argc, char** argv) {
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  //! [attach]
  KRRunLoop::main().attach([] { g_idle_add_full(G_PRIORITY_DEFAULT, pollSdk, nullptr, nullptr); });
  //! [attach]

  const auto talk = Talk::begin(argc, argv);
  struct Context {
    Talk& talk;
    GMainLoop* loop;
  } context{*talk, loop};
  const GUnixFDSourceFunc onInput = [](gint, GIOCondition, gpointer data) -> gboolean {
    auto& [itsTalk, itsLoop] = *static_cast<Context*>(data);
    if (itsTalk.readInput()) return G_SOURCE_CONTINUE;
    g_main_loop_quit(itsLoop);
    return G_SOURCE_REMOVE;
  };
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), onInput, &context);

  g_main_loop_run(loop);
  KRRunLoop::main().detach();
  g_main_loop_unref(loop);
}
