// The platform's sockets with single calls replaced.
#pragma once

#include "net/CXSocketDriver.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// In place of the current driver while it lives; outlives the streams that were made meanwhile.
/// A hook that is set takes the place of the platform's call; set them before other threads run.
class SocketDriverDouble : public CXSocketDriver {
public:
    SocketDriverDouble() : m_earlier(SetCurrent(this)) {}
    ~SocketDriverDouble() override { SetCurrent(m_earlier); }

    std::function<bool()> failCreate;
    std::function<bool()> failBind;
    std::function<Connected()> connect;
    std::function<int(bool)> setBlocking;
    std::function<int(uint32_t, uint32_t, int&)> wait;
    std::function<bool(int&)> getSocketError;
    std::function<uint32_t(uint32_t)> changeTimeout;
    std::function<bool(const CXString&, CXSocketAddress&)> lookUp;
    bool hasFastLoopback = false;

    /// What was asked for: "nodelay 1", "send timeout 45000", ...
    std::vector<std::string> GetCalls() {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_calls;
    }
    /// Sockets made less sockets closed.
    int GetOpenSockets() const { return m_open.load(); }

    void Start() override { Platform().Start(); }
    CXSocketHandle Create() override {
        return failCreate && failCreate() ? kCXNoSocket : Counted(Platform().Create());
    }
    bool Bind(CXSocketHandle socket, const CXSocketAddress& address) override {
        return !(failBind && failBind()) && Platform().Bind(socket, address);
    }
    bool Listen(CXSocketHandle socket, int backlog) override {
        return Platform().Listen(socket, backlog);
    }
    CXSocketHandle Accept(CXSocketHandle socket, CXSocketAddress& peer) override {
        return Counted(Platform().Accept(socket, peer));
    }
    Connected Connect(CXSocketHandle socket, const CXSocketAddress& address) override {
        return connect ? connect() : Platform().Connect(socket, address);
    }
    int SetBlocking(CXSocketHandle socket, bool blocking) override {
        return setBlocking ? setBlocking(blocking) : Platform().SetBlocking(socket, blocking);
    }
    int Wait(CXSocketHandle socket, uint32_t bits, uint32_t timeoutMs, int& error) override {
        return wait ? wait(bits, timeoutMs, error)
                    : Platform().Wait(socket, bits, timeoutMs, error);
    }
    bool GetSocketError(CXSocketHandle socket, int& error) override {
        return getSocketError ? getSocketError(error) : Platform().GetSocketError(socket, error);
    }
    bool GetLocalAddress(CXSocketHandle socket, CXSocketAddress& out) override {
        return Platform().GetLocalAddress(socket, out);
    }
    int64_t Receive(CXSocketHandle socket, void* data, uint64_t count, int& error) override {
        return Platform().Receive(socket, data, count, error);
    }
    int64_t Send(CXSocketHandle socket, const void* data, uint64_t count, int& error) override {
        return Platform().Send(socket, data, count, error);
    }
    void Shutdown(CXSocketHandle socket) override { Platform().Shutdown(socket); }
    void Close(CXSocketHandle socket) override {
        --m_open;
        Platform().Close(socket);
    }
    bool SetNoDelay(CXSocketHandle socket, bool noDelay) override {
        Note("nodelay " + std::to_string(noDelay));
        return Platform().SetNoDelay(socket, noDelay);
    }
    bool SetTimeout(CXSocketHandle socket, Timeout kind, uint32_t milliseconds) override {
        Note((kind == Timeout::Send ? "send timeout " : "receive timeout ") +
             std::to_string(milliseconds));
        return Platform().SetTimeout(socket, kind,
                                     changeTimeout ? changeTimeout(milliseconds) : milliseconds);
    }
    bool HasFastLoopback() override { return hasFastLoopback; }
    bool SetFastLoopback(CXSocketHandle /*socket*/, bool fast) override {
        Note("fast loopback " + std::to_string(fast));
        return false; // which an opening ignores
    }
    bool LookUp(const CXString& name, CXSocketAddress& out) override {
        return lookUp ? lookUp(name, out) : Platform().LookUp(name, out);
    }

private:
    CXSocketHandle Counted(CXSocketHandle socket) {
        m_open += socket != kCXNoSocket ? 1 : 0;
        return socket;
    }
    void Note(const std::string& call) {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_calls.push_back(call);
    }

    CXSocketDriver* m_earlier;
    std::mutex m_lock;
    std::vector<std::string> m_calls;
    std::atomic<int> m_open{0};
};
