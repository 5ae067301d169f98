#include "kit/VelPatchParallel.h"

#include "runtime/CXCondition.h"
#include "runtime/CXThread.h"

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kTickMilliseconds = 50;

/// What the threads share.
struct SharedWork {
    SharedWork(const std::function<void(size_t)>& workToDo, size_t items)
        : work(workToDo), count(items) {}

    const std::function<void(size_t)>& work;
    const size_t count;
    std::atomic<size_t> next{0};
    CXCondition changed; ///< its lock guards `done`
    size_t done = 0;

    /// False when nothing is left.
    bool RunNext() {
        const size_t index = next.fetch_add(1);
        if (index >= count) {
            return false;
        }
        work(index);
        CXConditionGuard guard(changed.GetLock());
        if (++done == count) {
            changed.Signal();
        }
        return true;
    }
};

class ParallelThread : public CXThread {
public:
    explicit ParallelThread(SharedWork& shared) : CXThread("Parallel"), m_shared(shared) {}
    ~ParallelThread() override { CXThread::Stop(); }
    void Proc() override {
        while (!IsStopRequested() && m_shared.RunNext()) {
        }
    }

private:
    SharedWork& m_shared;
};

} // namespace

unsigned GetProcessorCount() {
    return std::max(1U, std::thread::hardware_concurrency());
}

bool RunParallel(size_t count, unsigned workers, const std::function<void(size_t)>& work,
                 const std::function<bool(size_t)>& tick) {
    SharedWork shared(work, count);
    std::vector<std::unique_ptr<ParallelThread>> threads;
    bool isAnyUp = false;
    for (size_t i = 0; i < std::min<size_t>(std::max(1U, workers), count); i++) {
        threads.push_back(std::make_unique<ParallelThread>(shared));
        threads.back()->Start();
        isAnyUp = isAnyUp || threads.back()->IsRunning();
    }
    // A thread that is over already looks like one that never ran; then this finds nothing to do.
    size_t done = 0;
    while (done < count && tick(done)) {
        if (!isAnyUp) {
            shared.RunNext();
        }
        CXConditionGuard guard(shared.changed.GetLock());
        if (isAnyUp && shared.done < count) {
            shared.changed.WaitFor(guard, kTickMilliseconds);
        }
        done = shared.done;
    }
    threads.clear(); // each ends with the item it is at
    return done == count;
}

void RunParallel(size_t count, unsigned workers, const std::function<void(size_t)>& work) {
    SharedWork shared(work, count);
    std::vector<std::unique_ptr<ParallelThread>> threads;
    for (size_t i = 1; i < std::min<size_t>(workers, count); i++) {
        threads.push_back(std::make_unique<ParallelThread>(shared));
        threads.back()->Start();
    }
    while (shared.RunNext()) {
    }
    threads.clear(); // each ends with the item it is at
}
