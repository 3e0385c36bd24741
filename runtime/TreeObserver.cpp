#include "runtime/TreeObserver.h"

namespace Orv {

thread_local constinit TreeObserver* TreeObserver::first = nullptr;

TreeObserver::TreeObserver() : next_(first) { first = this; }

TreeObserver::~TreeObserver() {
    TreeObserver** place = &first;
    while (*place != this) place = &(*place)->next_;
    *place = next_;
}

}  // namespace Orv
