#include <Synch/Initializer.h>

#include <Synch/Atomic.h>

namespace WSynch {
namespace {

AtomicLong gCount(0);

} // namespace

Initializer::Initializer() noexcept {
    WSynch_AtomicIncrement(gCount);
}

Initializer::~Initializer() {
    WSynch_AtomicDecrement(gCount);
}

long Initializer::GetCount() noexcept {
    return gCount.Get();
}

} // namespace WSynch
