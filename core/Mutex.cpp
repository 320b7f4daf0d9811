#include <kes/Mutex.h>

namespace Kes {

void Mutex::claim() {
    lock.lock();
}

void Mutex::release() {
    lock.unlock();
}

MutexGuard::MutexGuard(Mutex& m) : mutex(&m) {
    mutex->claim();
}

MutexGuard::~MutexGuard() {
    mutex->release();
}

}  // namespace Kes
