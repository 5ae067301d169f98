// Addresses: any text is split, joined and decoded; what is joined splits into the same address.
#include "fuzz/FuzzTools.h"
#include "net/CXURI.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SilenceLog();
    const absl::string_view text(reinterpret_cast<const char*>(data), size);
    const CXURI uri(text);
    Check(uri.path.FindChar('?') < 0);
    Check(uri.host.FindChar('/') < 0);
    Check(uri.ToString().GetLength() <= size + 8); // at most "://", "/", and a longer port
    const CXString path = uri.ToFilePath();
    Check(path.IsEmpty() || path.FindChar('/') >= 0);

    const absl::string_view upToNul = text.substr(0, text.find('\0'));
    const CXString encoded = CXURI::Encode(text);
    Check(CXURI::Decode(encoded).View() == upToNul);
    Check(CXURI::Decode(text).GetLength() <= upToNul.size());

    // Parts that only hold ordinary bytes survive joining and splitting.
    CXURI made;
    made.scheme = "https";
    made.host = "h";
    made.port = uri.port;
    made.user = CXURI::Encode(uri.user);
    made.password = made.user.IsEmpty() ? CXString() : CXURI::Encode(uri.password);
    made.path = CXURI::Encode(uri.path, "/");
    made.query = CXURI::Encode(uri.query, "/?:@!");
    const CXURI again(made.ToString());
    Check(again.scheme == made.scheme && again.host == made.host && again.port == made.port &&
          again.user == made.user && again.password == made.password && again.path == made.path &&
          again.query == made.query);
    return 0;
}
