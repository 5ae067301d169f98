// The four-mode lock and the locks found by address.
#include "runtime/CXObjectLockGuard.h"
#include "runtime/CXReadWriteLock.h"
#include "tests/runtime/runtime_test_util.h"

#include <map>
#include <memory>
#include <sstream>

namespace {

/// Steps, each by an actor with a digit for a name: "1+3" takes mode 3 and gets it, "1+4!" has to
/// wait for it, "1~" still waits, "1=" has got it by now, "1-3" gives it back.
struct LockScene {
    const char* name;
    const char* steps;
};

void Play(const LockScene& scene) {
    SCOPED_TRACE(scene.name);
    CXReadWriteLock lock;
    std::map<char, std::unique_ptr<Actor>> actors;
    std::istringstream steps(scene.steps);
    for (std::string step; steps >> step;) {
        SCOPED_TRACE(step);
        std::unique_ptr<Actor>& slot = actors[step[0]];
        if (slot == nullptr) {
            slot = std::make_unique<Actor>();
        }
        Actor& actor = *slot;
        const bool mustWait = step.back() == '!' || step.back() == '~';
        if (step[1] == '+' || step[1] == '-') {
            const auto mode = static_cast<CXLockMode>(step[2] - '0');
            const bool take = step[1] == '+';
            actor.Do([&lock, mode, take] { take ? lock.Lock(mode) : lock.Unlock(mode); });
        }
        if (mustWait) {
            LetOthersRun();
            ASSERT_TRUE(actor.IsBusy());
        } else {
            ASSERT_TRUE(WaitUntil([&] { return !actor.IsBusy(); }));
        }
    }
}

TEST(ReadWriteLock, Scenes) {
    const LockScene scenes[] = {
        {"shares of all modes side by side", "1+1 2+2 3+3 1-1 2-2 3-3 4+4 4-4"},
        {"a holder gets more shares while a writer waits, a newcomer does not",
         "1+1 2+4! 1+1 1+3 3+1! 1-1 1-3 2~ 1-1 2= 3~ 2-4 3= 3-1"},
        {"mode 2 passes a waiting writer beside mode 3, the others wait",
         "1+3 2+4! 3+2 4+1! 5+3! 3-2 1-3 2= 2-4 4= 5= 4-1 5-3"},
        {"mode 2 waits like the rest without a mode 3 holder", "1+1 2+4! 3+2! 1-1 2= 2-4 3= 3-2"},
        {"the owner takes it again and takes shares",
         "1+4 1+4 1+1 1+2 2+3! 3+4! 1-2 1-1 1-4 2~ 1-4 3= 2~ 3-4 2= 2-3"},
        {"a share that outlives the exclusive hold keeps the next writer out",
         "1+4 1+1 2+4! 1-4 2~ 1-1 2= 2-4 1+4 1-4"},
        {"more holders than the small table holds",
         "1+1 2+1 3+1 4+1 5+1 6+1 7+4! 6+1 5+3 8+1! 6-1 6-1 5-3 5-1 1-1 2-1 3-1 7~ 4-1 7= 7-4 8= "
         "8-1"},
    };
    for (const LockScene& scene : scenes) {
        Play(scene);
    }
}

TEST(ReadWriteLock, ExclusiveMeansAlone) {
    CXReadWriteLock lock;
    int value = 0; // plain on purpose: the lock is its only guard
    int copy = 0;
    std::atomic<int> torn{0};
    std::vector<std::unique_ptr<FunctionThread>> threads;
    for (uint32_t index = 0; index < 6; ++index) {
        threads.push_back(std::make_unique<FunctionThread>([&, index](FunctionThread&) {
            for (uint32_t round = 0; round < 400; ++round) {
                const auto mode = static_cast<CXLockMode>((index + round) % 4 + 1);
                const CXReadWriteLockGuard guard(lock, mode);
                if (mode == CXLockMode::Exclusive) {
                    const CXReadWriteLockGuard again(lock, CXLockMode::Share);
                    ++value;
                    ++copy;
                } else if (value != copy) {
                    ++torn;
                }
            }
        }));
        threads.back()->Start();
    }
    threads.clear(); // waits for each
    EXPECT_EQ(value, 6 * 100);
    EXPECT_EQ(torn, 0);
}

TEST(ObjectLock, OneAddressIsOneLockAndNothingStaysBehind) {
    int objects[3] = {};
    std::vector<std::unique_ptr<FunctionThread>> threads;
    for (uint32_t index = 0; index < 4; ++index) {
        threads.push_back(std::make_unique<FunctionThread>([&, index](FunctionThread&) {
            for (uint32_t round = 0; round < 500; ++round) {
                int& object = objects[(index + round) % 3];
                const CXObjectLockGuard guard(&object, CXLockMode::Exclusive);
                const CXObjectLockGuard again(&object, CXLockMode::Exclusive);
                ++object;
            }
        }));
        threads.back()->Start();
    }
    threads.clear(); // waits for each
    EXPECT_EQ(objects[0] + objects[1] + objects[2], 2000);
    EXPECT_EQ(CXObjectLockGuard::CountLockedAddresses(), 0u);
    const CXObjectLockGuard a(&objects[0], CXLockMode::Share);
    const CXObjectLockGuard b(&objects[1], CXLockMode::Exclusive);
    EXPECT_EQ(CXObjectLockGuard::CountLockedAddresses(), 2u);
}

} // namespace
