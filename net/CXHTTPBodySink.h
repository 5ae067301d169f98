// Where the bytes of a body go.
#pragma once

#include "core/CXResult.h"
#include "core/CXStringEdit.h"
#include "stream/CXStream.h"

/// A stream, or a text where there is no stream; neither is owned.
struct CXHTTPBodySink {
    CXStream* output;
    CXStringEdit& text;

    /// Takes all or fails: with the stream's last error, or kCXResultNoResources when the text
    /// can't grow.
    CXResult Write(const void* data, uint64_t count) {
        if (output != nullptr) {
            return output->Write(data, count) == count
                       ? kCXResultOK
                       : CXResultCertainFailure(output->GetLastError());
        }
        if (!text.Reserve(text.GetLength(), count)) {
            return kCXResultNoResources;
        }
        text.Append(absl::string_view(static_cast<const char*>(data), static_cast<size_t>(count)));
        return kCXResultOK;
    }
};
