// Two streams of which each reads what was written to the other.
#pragma once

#include "stream/CXStreamQueued.h"

/// The ends may be used by different threads; see CXStreamQueued. The pipe owns both and must
/// outlive their use. What was written and not yet read is held in memory, without limit.
class CXStreamPipe : public CXNonCopyable {
public:
    /// One of the two streams.
    class End : public CXStreamQueued {
    public:
        /// Ends the connection in both directions.
        void Close() override;
        /// Never waits.
        uint64_t BufferedWrite(const void* data, uint64_t count) override;

    private:
        friend class CXStreamPipe;
        End* m_other = nullptr;
    };

    CXStreamPipe();

    /// Index 0 or 1.
    End& GetEnd(int index) { return m_ends[index]; }

private:
    End m_ends[2];
};
