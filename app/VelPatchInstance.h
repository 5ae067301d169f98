// How two running instances of the program find each other.
#pragma once

#include "app/VelPatchHandOver.h"

#include <memory>

/// First word of the names of the sockets; tests take another one to be among themselves. Windows
/// knows instances by their windows and takes no notice of it.
inline constexpr const char* kInstanceName = "velpatch";

/// Looks for a running instance of the same program image and hands it the line. True if it was
/// accepted: its window was or will be on top, and this process has nothing left to do. Whatever
/// goes wrong is false, without a word. Needs no other service of the program. On Linux it takes 2
/// seconds at most; on Windows it waits for the other window's procedure.
bool HandOverToRunningInstance(absl::string_view line, const char* name = kInstanceName);

/// Lets other instances find this one, for as long as it lives. On Windows the window is what they
/// find, so there this does nothing: its procedure calls the receiver. Main thread.
class VelPatchInstanceListener {
public:
    /// `receiver` must outlive the listener.
    explicit VelPatchInstanceListener(VelPatchHandOverReceiver& receiver,
                                      const char* name = kInstanceName);
    ~VelPatchInstanceListener();
    VelPatchInstanceListener(const VelPatchInstanceListener&) = delete;
    VelPatchInstanceListener& operator=(const VelPatchInstanceListener&) = delete;

    /// False if others can't find this instance; the program works all the same.
    bool IsListening() const;
    /// Takes what has come and answers it, without waiting. Call it often: the other side gives up
    /// after 2 seconds, and what it has given up is dropped.
    void Poll();

private:
    struct Endpoint;
    std::unique_ptr<Endpoint> m_endpoint;
};
