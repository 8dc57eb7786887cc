// The SDK without a main loop of the application's: its own drives everything, network included.

#include <thread>

#include "Talk.h"

int main(int argc, char** argv) {
  const auto talk = Talk::begin(argc, argv);

  // Waiting for input would hold up the loop, so it happens elsewhere.
  std::thread reader([&talk] {
    while (const auto text = Talk::read()) {
      KRRunLoop::main().post([&talk, text] { talk->say(*text); });
    }
    KRRunLoop::main().post([&talk] {
      talk->leave();
      KRRunLoop::main().stop();
    });
  });

  KRRunLoop::main().run();
  reader.join();
}
