// The SDK on a main loop of the application's own, here one that waits with epoll.

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "Talk.h"

namespace {

void watch(int epoll, int descriptor) {
  epoll_event interest{};
  interest.events = EPOLLIN;
  interest.data.fd = descriptor;
  epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &interest);
}

}  // namespace

int main(int argc, char** argv) {
  //! [attach]
  const int wakeUps = eventfd(0, EFD_CLOEXEC);
  KRRunLoop::main().attach([wakeUps] { eventfd_write(wakeUps, 1); });
  //! [attach]

  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  watch(epoll, wakeUps);
  watch(epoll, STDIN_FILENO);

  const auto talk = Talk::begin(argc, argv);
  for (;;) {
    epoll_event event{};
    if (epoll_wait(epoll, &event, 1, -1) < 1) continue;
    //! [poll]
    if (event.data.fd == wakeUps) {
      eventfd_t count = 0;
      eventfd_read(wakeUps, &count);
      KRRunLoop::main().poll();
      //! [poll]
    } else if (!talk->readInput()) {
      KRRunLoop::main().detach();
      close(epoll);
      close(wakeUps);
      return 0;
    }
  }
}
