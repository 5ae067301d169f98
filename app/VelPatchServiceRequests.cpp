#include "app/VelPatchServiceRequests.h"

#include "core/CXStringEdit.h"
#include "net/CXHTTPConnection.h"
#include "net/CXURI.h"

namespace {

void AppendPair(CXStringEdit& address, char separator, absl::string_view key,
                absl::string_view value) {
    address.AppendByte(separator);
    address.Append(key);
    address.AppendByte('=');
    address.Append(CXURI::Encode(value));
}

} // namespace

CXString AddressOfQuery(const VelPatchStreamCheckQuery& query) {
    CXStringEdit address(query.serviceBase.View());
    address.Append("streams/rollstockstreamcheck.php");
    AppendPair(address, '?', "u", query.username);
    AppendPair(address, '&', "p", query.password);
    AppendPair(address, '&', "loc", query.locale);
    AppendPair(address, '&', "id", query.bundleId);
    if (query.isInstallation) {
        AppendPair(address, '&', "i", *query.isInstallation ? "1" : "0");
    }
    AppendPair(address, '&', "iid", query.installationId);
    return address.ToString();
}

CXString AddressOfQuery(const VelPatchStreamFileQuery& query) {
    CXStringEdit address(query.serviceBase.View());
    address.Append("streams/getstreamfile.php");
    AppendPair(address, '?', "u", query.username);
    AppendPair(address, '&', "p", query.password);
    AppendPair(address, '&', "stream", query.streamId);
    AppendPair(address, '&', "build", query.build);
    AppendPair(address, '&', "loc", query.locale);
    return address.ToString();
}

VelPatchServiceReply FetchServiceReply(const CXString& address, CXGenericEvent* cancelEvent) {
    CXHTTPConnection connection;
    if (cancelEvent) {
        connection.SetCancelEvent(CXGenericEventRef(cancelEvent));
    }
    VelPatchServiceReply reply;
    reply.result = connection.GetText(CXURI(address), &reply.body,
                                      [](const CXStreamProgressCallbackData& progress) {
                                          return progress.bytesDone <= kLongestServiceReply;
                                      });
    return reply;
}
