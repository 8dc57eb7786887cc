// The SDK on Qt's event loop.

#include <QCoreApplication>
#include <QMetaObject>
#include <QSocketNotifier>

#include "Talk.h"

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  //! [attach]
  KRRunLoop::main().attach([&application] {
    QMetaObject::invokeMethod(
        &application, [] { KRRunLoop::main().poll(); }, Qt::QueuedConnection);
  });
  //! [attach]

  const auto talk = Talk::begin(argc, argv);
  QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
  QObject::connect(&input, &QSocketNotifier::activated, &application, [&] {
    if (talk->readInput()) return;
    input.setEnabled(false);
    QCoreApplication::quit();
  });

  //! [detach]
  const int result = QCoreApplication::exec();
  KRRunLoop::main().detach();  // before `application` goes
  return result;
  //! [detach]
}
