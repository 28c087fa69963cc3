#include "tools/runner/arrivals.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <random>

namespace runner {

struct SharedArrivals::Shared {
    pthread_mutex_t mutex;
    int64_t start_ns;
    ArrivalState state;
    double ring[1];  // state.capacity of them (at least one slot is mapped)
};

namespace {

int64_t monotonic_ns() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace

SharedArrivals::~SharedArrivals() {
    if (shared_) munmap(shared_, size_);
}

bool SharedArrivals::create(const Profile &profile, bool poisson, uint32_t waiting, double end_s,
                            std::string &error) {
    size_ = sizeof(Shared) + sizeof(double) * waiting;
    void *memory = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        error = std::string("cannot map the schedule: ") + std::strerror(errno);
        return false;
    }
    shared_ = static_cast<Shared *>(memory);
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    // A user killed while it holds the lock must not stop the others.
    pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&shared_->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    shared_->state = ArrivalState{};
    shared_->state.poisson = poisson;
    shared_->state.random = std::random_device{}();
    shared_->state.capacity = waiting;
    shared_->start_ns = monotonic_ns();
    profile_ = profile;
    end_s_ = end_s;
    return true;
}

double SharedArrivals::now_s() const {
    return static_cast<double>(monotonic_ns() - shared_->start_ns) / 1e9;
}

void SharedArrivals::lock() {
    if (pthread_mutex_lock(&shared_->mutex) == EOWNERDEAD)
        pthread_mutex_consistent(&shared_->mutex);
}

bool SharedArrivals::next(double &due_s) {
    lock();
    bool found = next_arrival(shared_->state, shared_->ring, profile_, now_s(), end_s_, due_s);
    pthread_mutex_unlock(&shared_->mutex);
    return found;
}

void SharedArrivals::counts(uint64_t &arrivals, uint64_t &dropped) {
    lock();
    // While every user is busy nobody admits the arrivals that come; the
    // parent does, so that its counts are those of now.
    admit_arrivals(shared_->state, shared_->ring, profile_, now_s(), end_s_);
    arrivals = shared_->state.arrivals;
    dropped = shared_->state.dropped;
    pthread_mutex_unlock(&shared_->mutex);
}

}  // namespace runner
