// Global string constants: each symbol is a variable that holds a string object.
#include "objc/string_constants.h"

#include "objc/ns_string.h"
#include "objc/shims.h"

namespace vlm {
namespace {

struct Constant {
  NSString* object;  // what the symbol shows; written once, during static start-up
  const char* text;
};

constinit Constant cf_locale_country_code = {nullptr, "kCFLocaleCountryCodeKey"};
constinit Constant cf_locale_language_code = {nullptr, "kCFLocaleLanguageCodeKey"};
constinit Constant cf_locale_script_code = {nullptr, "kCFLocaleScriptCodeKey"};
constinit Constant ns_locale_country_code = {nullptr, "kCFLocaleCountryCodeKey"};
constinit Constant ns_locale_identifier = {nullptr, "kCFLocaleIdentifierKey"};
constinit Constant player_did_change = {nullptr, "GKPlayerDidChangeNotificationName"};
constinit Constant store_did_change = {nullptr, "NSUbiquitousKeyValueStoreDidChangeExternallyNotification"};

}  // namespace

void create_string_constants() {
  for (Constant* constant : {&cf_locale_country_code, &cf_locale_language_code, &cf_locale_script_code,
                             &ns_locale_country_code, &ns_locale_identifier, &player_did_change, &store_did_change}) {
    constant->object = ns_string_new(constant->text);
  }
}

const ShimEntry string_constant_rows[] = {
    {"_kCFLocaleCountryCode", &cf_locale_country_code.object},
    {"_kCFLocaleLanguageCode", &cf_locale_language_code.object},
    {"_kCFLocaleScriptCode", &cf_locale_script_code.object},
    {"_NSLocaleCountryCode", &ns_locale_country_code.object},
    {"_NSLocaleIdentifier", &ns_locale_identifier.object},
    {"_GKPlayerDidChangeNotificationName", &player_did_change.object},
    {"_NSUbiquitousKeyValueStoreDidChangeExternallyNotification", &store_did_change.object},
};
constinit const ShimRows string_constant_shims = string_constant_rows;

}  // namespace vlm
