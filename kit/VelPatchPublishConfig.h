// The texts that a published service is made of: the replies, and the web server's configuration.
#pragma once

#include "kit/VelPatchPublishModel.h"

#include <functional>

/// Says what the service says in its own words: never names of files or of the player.
namespace VelPatchPublishConfig {

inline constexpr const char* kFileHead =
    "# Written by \"velpatch-kit publish\", which replaces this file.\n";

/// A reply that tells of a failure.
CXString ErrorReply(const char* word);
/// The reply to a stream check: these streams, in this order.
CXString StreamCheckReply(const VelPatchPublishService& service,
                          const std::vector<size_t>& streams);
/// The reply that offers a patch.
CXString PatchReply(const CXString& controlAddress, const CXString& dataAddress,
                    const CXString& description);

/// An expression that matches the text in a query, byte for byte and case for case, however its
/// sender has escaped it. Of letters, digits and harmless signs alone, so that nothing in the text
/// can end the string that the expression stands in.
CXString MatchEscaped(absl::string_view text);
/// The web server reads no word of its configuration that is longer than 4095 bytes: what the
/// expressions in one word may take together.
inline constexpr size_t kLongestMatch = 4000;
/// The text as a double-quoted string of the web server's configuration. It must not hold "$",
/// which no quoting takes its meaning.
CXString Quote(absl::string_view text);

/// What is digested in front of an account and its password: no table that was made for another
/// service fits this one.
CXString DigestSalt(const VelPatchPublishService& service);

/// Who may use what: accounts that may use the same share one group.
struct Groups {
    struct Group {
        std::vector<size_t> products; ///< owned
        std::vector<size_t> streams;  ///< that it may use, of these products
    };
    std::vector<Group> groups;
    std::vector<size_t> ofAccount; ///< for each account the index of its group
};
Groups MakeGroups(const VelPatchPublishService& service);
/// The product's streams that the group may use, in the product's order.
std::vector<size_t> StreamsFor(const VelPatchPublishService& service, const Groups::Group& group,
                               size_t product);

/// Gives the name under which a reply is stored, below the folder of the replies.
using NameReply = std::function<CXString(const CXString& reply)>;
/// Gives the reply that offers a patch.
using OfferPatch = std::function<CXString(const VelPatchPublishPatch& patch)>;

/// The maps from a request to the name of its reply: for the "http" block.
CXString HttpPart(const VelPatchPublishService& service, const OfferPatch& offer,
                  const NameReply& name);
/// The two scripts and the files: for a "server" block. `folder` is the published one, absolute.
CXString ServerPart(const VelPatchPublishService& service, const CXString& folder);
/// A whole configuration that includes both parts.
CXString StandAlone(const VelPatchPublishService& service, const CXString& folder);

} // namespace VelPatchPublishConfig
