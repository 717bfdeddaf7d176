// The verbs of feeds where the library for them is not there.

#include "tools/inscenter/FeedVerbs.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {
namespace {

[[noreturn]] void refuse() {
    throw UnreadableInput("this program was built without feeds (libnats)");
}

}  // namespace

int publishDay(const FeedQuery& /*query*/, Output& /*output*/, Console& /*console*/) {
    refuse();
}
int publishChanges(const FeedQuery& /*query*/, Output& /*output*/, Console& /*console*/) {
    refuse();
}
int watchFeed(const FeedQuery& /*query*/, Output& /*output*/, Console& /*console*/) {
    refuse();
}
int showFeedStatus(const FeedQuery& /*query*/, Output& /*output*/, Console& /*console*/) {
    refuse();
}
void setFeedAccess(const FeedQuery& /*query*/) {}
Snapshot readFeed(const std::string& /*url*/) {
    refuse();
}

}  // namespace inscenter
