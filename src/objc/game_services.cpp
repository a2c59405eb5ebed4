// GameKit and StoreKit for a player who is not signed in, and never will be. Every question is answered with no. Every
// handler is called at once, on the thread that asks, with an error. What is set or submitted is forgotten.
#include "objc/ns_error.h"
#include "objc/plain_methods.h"
#include "objc/shared_instance.h"

namespace vlm {
namespace {

/// `GKErrorCode`, <GameKit/GKError.h>.
enum GameKitError : std::int64_t { GKErrorNotAuthenticated = 6, GKErrorGameUnrecognized = 15 };

template <class... Arguments>
void call_handler(const ObjcBlock* handler, GameKitError code, Arguments... before_error) {
  if (handler == nullptr || handler->invoke == nullptr) return;
  call_block(handler, before_error..., ns_error_new(objc_class_NSError, ns_string_new("GKErrorDomain"), code, nullptr));
}

SYSV void set_authenticate_handler(ObjcObject*, Selector, const ObjcBlock* handler) {
  ObjcObject* const view_controller = nullptr;
  call_handler(handler, GKErrorGameUnrecognized, view_controller);
}

SYSV void report_achievements(ObjcClass*, Selector, ObjcObject* /* achievements */, const ObjcBlock* handler) {
  call_handler(handler, GKErrorNotAuthenticated);
}

SYSV void load_leaderboards(ObjcClass*, Selector, ObjcObject* /* ids */, const ObjcBlock* handler) {
  ObjcObject* const leaderboards = nullptr;
  call_handler(handler, GKErrorNotAuthenticated, leaderboards);
}

SYSV void submit_score(ObjcClass*, Selector, std::int64_t /* score */, std::uint64_t /* context */,
                       ObjcObject* /* player */, ObjcObject* /* leaderboard_ids */, const ObjcBlock* handler) {
  call_handler(handler, GKErrorNotAuthenticated);
}

}  // namespace

const MethodRow GKLocalPlayer_class_methods[] = {
    {"localPlayer", shim(shared_instance_method<objc_class_GKLocalPlayer>)},
    {"local", shim(shared_instance_method<objc_class_GKLocalPlayer>)},
    {},
};
const MethodRow GKLocalPlayer_methods[] = {
    {"isAuthenticated", shim(return_no)},
    {"isUnderage", shim(return_no)},
    {"isMultiplayerGamingRestricted", shim(return_no)},
    {"isPersonalizedCommunicationRestricted", shim(return_no)},
    {"setAuthenticateHandler:", shim(set_authenticate_handler)},
    {"playerID", shim(return_nil)},
    {"gamePlayerID", shim(return_nil)},
    {"teamPlayerID", shim(return_nil)},
    {"displayName", shim(return_nil)},
    {"alias", shim(return_nil)},
    {},
};

const MethodRow GKAccessPoint_class_methods[] = {
    {"shared", shim(shared_instance_method<objc_class_GKAccessPoint>)},
    {},
};
const MethodRow GKAccessPoint_methods[] = {
    {"isActive", shim(return_no)},      {"isPresentingGameCenter", shim(return_no)}, {"setActive:", shim(do_nothing)},
    {"setLocation:", shim(do_nothing)}, {"setShowHighlights:", shim(do_nothing)},    {},
};

const MethodRow GKAchievement_class_methods[] = {
    {"reportAchievements:withCompletionHandler:", shim(report_achievements)},
    {},
};
const MethodRow GKAchievement_methods[] = {
    {"initWithIdentifier:", shim(return_self)},
    {"setPercentComplete:", shim(do_nothing)},
    {"setShowsCompletionBanner:", shim(do_nothing)},
    {},
};

const MethodRow GKLeaderboard_class_methods[] = {
    {"loadLeaderboardsWithIDs:completionHandler:", shim(load_leaderboards)},
    {"submitScore:context:player:leaderboardIDs:completionHandler:", shim(submit_score)},
    {},
};
const MethodRow GKLeaderboard_methods[] = {{}};

// Nothing but names to link against.
const MethodRow GKDialogController_class_methods[] = {{}};
const MethodRow GKDialogController_methods[] = {{}};
const MethodRow GKGameCenterViewController_class_methods[] = {{}};
const MethodRow GKGameCenterViewController_methods[] = {{}};

const MethodRow SKStoreReviewController_class_methods[] = {{"requestReview", shim(do_nothing)}, {}};
const MethodRow SKStoreReviewController_methods[] = {{}};

}  // namespace vlm
