#include "KorivaSDK/RunLoopInternals.h"
#include "KorivaSDK/State.h"

void KorivaSDK::addDelegate(std::shared_ptr<KorivaDelegate> delegate) {
  auto delegates = *state_->delegates;
  delegates.push_back(std::move(delegate));
  state_->delegates = std::make_shared<const State::Delegates>(std::move(delegates));
}

void KorivaSDK::removeDelegate(const std::shared_ptr<KorivaDelegate>& delegate) {
  auto delegates = *state_->delegates;
  std::erase(delegates, delegate);
  state_->delegates = std::make_shared<const State::Delegates>(std::move(delegates));
}

void KorivaSDK::forEachDelegate(const std::function<void(KorivaDelegate&)>& call) {
  const auto snapshot = state_->delegates;
  for (const auto& delegate : *snapshot) {
    if (delegate) koriva::guarded([&] { call(*delegate); });
  }
}
