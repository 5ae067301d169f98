// The socket between two instances, with peers that are slow, mute, foreign or not ours at all.
#include "app/VelPatchInstance.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <thread>

namespace {

constexpr uid_t kNobody = 65534;

/// A local socket, bound or connected to an abstract name by hand.
class RawSocket {
public:
    RawSocket() : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ~RawSocket() { close(m_socket); }
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    bool Bind(const std::string& name) { return Use(bind, name); }
    bool Listen() { return listen(m_socket, 5) == 0; }
    bool Connect(const std::string& name) { return Use(connect, name); }
    bool Send(const std::string& bytes) const {
        return send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    bool WaitForInput(int milliseconds) const {
        pollfd waited{m_socket, POLLIN, 0};
        return poll(&waited, 1, milliseconds) == 1;
    }
    /// What comes until the other side closes, or an error.
    std::string ReceiveAll() const {
        std::string all;
        char piece[64];
        for (ssize_t count; (count = recv(m_socket, piece, sizeof piece, 0)) > 0;) {
            all.append(piece, static_cast<size_t>(count));
        }
        return all;
    }

private:
    bool Use(int (*call)(int, const sockaddr*, socklen_t), const std::string& name) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path + 1, name.data(), name.size());
        return call(m_socket, reinterpret_cast<const sockaddr*>(&address),
                    static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())) == 0;
    }
    int m_socket;
};

class InstanceSocket : public testing::Test {
protected:
    InstanceSocket() : m_earlierFolder(CXFileSystem::GetCurrentDirectory()) {
        CXFileSystem::SetApplicationFolder(m_folder.Path());
    }
    ~InstanceSocket() override {
        GetProcessSettings().target.Clear();
        CXFileSystem::SetApplicationFolder(CXString());
        CXFileSystem::SetCurrentDirectory(m_earlierFolder);
    }

    std::string SocketName(pid_t process = getpid()) const {
        return name + "-" + std::to_string(geteuid()) + "-" + std::to_string(process);
    }
    /// Hands a line over from another thread while this one polls.
    bool HandOver(VelPatchInstanceListener& listener, const std::string& line) const {
        std::atomic<int> answer{-1};
        std::thread second([&] { answer = HandOverToRunningInstance(line, name.c_str()) ? 1 : 0; });
        while (answer == -1) {
            listener.Poll();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        second.join();
        return answer == 1;
    }

    // Copies of this test in other processes have other names.
    const std::string name = "velpatch-test" + std::to_string(getpid());
    int raised = 0;
    bool isLeaving = false;
    VelPatchHandOverReceiver receiver{{[this] { return isLeaving; }, [this] { ++raised; }}};

private:
    TempFolder m_folder;
    CXString m_earlierFolder;
};

TEST_F(InstanceSocket, AcceptsAndRefuses) {
    EXPECT_FALSE(HandOverToRunningInstance("--start", name.c_str())) << "nobody is there";
    {
        VelPatchInstanceListener listener(receiver, name.c_str());
        ASSERT_TRUE(listener.IsListening());
        const std::string folder = "/games/" + std::string(300000, 'x'); // more than one piece
        EXPECT_TRUE(HandOver(listener, "--target " + folder));
        EXPECT_EQ(Text(GetProcessSettings().target), folder);
        EXPECT_TRUE(HandOver(listener, ""));
        EXPECT_EQ(raised, 2);
        EXPECT_FALSE(HandOver(listener, "--checkforpatch"));
        EXPECT_FALSE(HandOver(listener, std::string(kHandOverMaxBytes, 'x')));
        isLeaving = true;
        EXPECT_FALSE(HandOver(listener, ""));
        isLeaving = false;
        EXPECT_EQ(raised, 2);
        VelPatchInstanceListener again(receiver, name.c_str());
        EXPECT_FALSE(again.IsListening()) << "one for a process";
        again.Poll();
    }
    EXPECT_FALSE(HandOverToRunningInstance("--start", name.c_str())) << "gone without a trace";
}

TEST_F(InstanceSocket, DropsGarbage) {
    VelPatchInstanceListener listener(receiver, name.c_str());
    const std::string good = MakeHandOverFrame("--start");
    for (const std::string& bytes :
         {std::string("GET / HTTP/1.1\r\n\r\n"), good + "x", std::string(100, '\xFF')}) {
        RawSocket peer;
        ASSERT_TRUE(peer.Connect(SocketName()) && peer.Send(bytes));
        listener.Poll();
        EXPECT_EQ(peer.ReceiveAll(), "");
    }
    { // hangs up before it is answered: has gone on by itself
        RawSocket peer;
        ASSERT_TRUE(peer.Connect(SocketName()) && peer.Send(good));
    }
    listener.Poll();
    EXPECT_EQ(raised, 0);
    RawSocket slow; // but alive
    ASSERT_TRUE(slow.Connect(SocketName()));
    for (const char byte : good) {
        listener.Poll();
        ASSERT_TRUE(slow.Send(std::string(1, byte)));
    }
    listener.Poll();
    EXPECT_EQ(slow.ReceiveAll(), std::string("\0\0\0\1", 4));
    EXPECT_EQ(raised, 1);
}

TEST_F(InstanceSocket, NobodyWaitsForever) {
    VelPatchInstanceListener listener(receiver, name.c_str());
    RawSocket idle[16]; // as many as the listener keeps at a time
    for (RawSocket& peer : idle) {
        ASSERT_TRUE(peer.Connect(SocketName()) && peer.Send("sgr"));
        listener.Poll();
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(HandOverToRunningInstance("--target /late", name.c_str())) << "never answered";
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(1900));
    EXPECT_LT(waited, std::chrono::seconds(20));
    while (!idle[15].WaitForInput(1)) { // until their time is up
        listener.Poll();
    }
    EXPECT_EQ(idle[15].ReceiveAll(), "");
    listener.Poll(); // what was given up meanwhile is read now, and must not count
    EXPECT_EQ(raised, 0);
    EXPECT_TRUE(HandOver(listener, "--target /next"));
    EXPECT_EQ(GetProcessSettings().target, "/next");
}

TEST_F(InstanceSocket, OnlyThisProgram) {
    RawSocket bound;
    ASSERT_TRUE(bound.Bind(SocketName()));
    EXPECT_FALSE(HandOverToRunningInstance("", name.c_str())) << "doesn't listen";
    RawSocket other;
    ASSERT_TRUE(other.Bind(SocketName(getppid())) && other.Listen());
    EXPECT_FALSE(HandOverToRunningInstance("", name.c_str()));
    EXPECT_FALSE(other.WaitForInput(0)) << "the name of another program's process";
}

TEST_F(InstanceSocket, OnlyThisUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs the right to become another user";
    }
    {
        VelPatchInstanceListener listener(receiver, name.c_str());
        const std::string socketName = SocketName();
        const pid_t child = fork();
        if (child == 0) {
            RawSocket peer;
            const bool sent = setuid(kNobody) == 0 && peer.Connect(socketName) &&
                              peer.Send(MakeHandOverFrame(""));
            _exit(sent && peer.ReceiveAll().empty() ? 0 : 1);
        }
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            listener.Poll();
        }
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        EXPECT_EQ(raised, 0);
    }
    // A stranger's process, by bad luck of the same image, under the name that ours would have.
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const std::string prefix = SocketName(0).substr(0, SocketName(0).size() - 1);
    const pid_t child = fork();
    if (child == 0) {
        RawSocket listener;
        const bool up = setuid(kNobody) == 0 && listener.Bind(prefix + std::to_string(getpid())) &&
                        listener.Listen();
        _exit(up && write(ready[1], "x", 1) == 1 && listener.WaitForInput(60000) ? 0 : 1);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(HandOverToRunningInstance("--start", name.c_str()));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1900))
        << "nothing was said to it, so there was no answer to wait for";
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "it was found, and hung up on";
    close(ready[0]);
    close(ready[1]);
}

} // namespace
