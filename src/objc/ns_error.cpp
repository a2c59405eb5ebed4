#include "objc/ns_error.h"

#include <cstdio>

#include "objc/plain_methods.h"

namespace vlm {

NSError* ns_error_new(ObjcClass& class_, ObjcObject* domain, std::int64_t code, ObjcObject* user_info) {
  auto* const error = objc_new<NSError>(class_);
  error->domain = domain;
  error->code = code;
  error->user_info = user_info;
  return error;
}

namespace {

SYSV NSError* error_with_domain(ObjcClass* receiver, Selector, ObjcObject* domain, std::int64_t code,
                                ObjcObject* user_info) {
  return ns_error_new(*receiver, domain, code, user_info);
}

SYSV std::int64_t code(NSError* receiver, Selector) { return receiver->code; }

SYSV ObjcObject* domain(NSError* receiver, Selector) { return receiver->domain; }

SYSV ObjcObject* user_info(NSError* receiver, Selector) { return receiver->user_info; }

/// A long domain is cut.
SYSV NSString* localized_description(NSError* receiver, Selector) {
  const char* const domain = ns_string_utf8(receiver->domain);
  char text[256];
  std::snprintf(text, sizeof text, "%s error %lld", domain != nullptr ? domain : "?",
                static_cast<long long>(receiver->code));
  return ns_string_new(text);
}

}  // namespace

const MethodRow NSError_class_methods[] = {{"errorWithDomain:code:userInfo:", shim(error_with_domain)}, {}};

const MethodRow NSError_methods[] = {
    {"code", shim(code)},
    {"domain", shim(domain)},
    {"userInfo", shim(user_info)},
    {"localizedDescription", shim(localized_description)},
    {"description", shim(localized_description)},
    {"localizedFailureReason", shim(return_nil)},
    {"localizedRecoverySuggestion", shim(return_nil)},
    {},
};

}  // namespace vlm
