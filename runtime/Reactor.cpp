#include "runtime/Reactor.h"

namespace Orv {

Reactor::~Reactor() = default;

void Reactor::retire() {
    if (retired_) return;
    retired_ = true;
    owner_ = nullptr;
    dismantle();
}

}  // namespace Orv
