// The game's surroundings: bundle, locale, files, notifications, the application, output of JSON. There is no cloud
// container, no window, and no notification is ever posted.
#include "objc/system_objects.h"

#include <string_view>

#include "objc/ns_collections.h"
#include "objc/ns_number.h"
#include "objc/plain_methods.h"
#include "objc/shared_instance.h"

namespace vlm {

NSString* ns_locale_value(ObjcObject* key) {
  const std::string_view text = ns_string_text(key);
  if (text.contains("Country")) return ns_string_new("US");
  if (text.contains("Language")) return ns_string_new("en");
  return ns_string_new(locale_identifier);
}

namespace {

SYSV NSString* bundle_identifier(ObjcObject*, Selector) { return ns_string_new("com.norlan.vlm"); }

SYSV NSCollection* preferred_languages(ObjcClass*, Selector) {
  auto* const languages = objc_new<NSCollection>(objc_class_NSMutableArray);
  ns_array_append(*languages, ns_string_new("en-US"));
  return languages;
}

SYSV NSString* locale_object_for_key(ObjcObject*, Selector, ObjcObject* key) { return ns_locale_value(key); }

/// The block is never called. The token is all that the caller gets.
SYSV ObjcObject* add_observer_with_block(ObjcObject*, Selector) { return objc_alloc_instance(&objc_class_NSObject); }

/// Game code writes no JSON that anything here would read.
SYSV NSData* data_with_json_object(ObjcClass*, Selector, ObjcObject* /* object */, std::uint64_t /* options */,
                                   ObjcObject** error) {
  if (error != nullptr) *error = nullptr;
  auto* const data = objc_new<NSData>(objc_class_NSData);
  data->bytes = "{}";
  data->length = 2;
  return data;
}

}  // namespace

const MethodRow NSBundle_class_methods[] = {{"mainBundle", shim(shared_instance_method<objc_class_NSBundle>)}, {}};
const MethodRow NSBundle_methods[] = {{"bundleIdentifier", shim(bundle_identifier)}, {}};

const MethodRow NSLocale_class_methods[] = {
    {"currentLocale", shim(shared_instance_method<objc_class_NSLocale>)},
    {"preferredLanguages", shim(preferred_languages)},
    {},
};
const MethodRow NSLocale_methods[] = {{"objectForKey:", shim(locale_object_for_key)}, {}};

const MethodRow NSFileManager_class_methods[] = {
    {"defaultManager", shim(shared_instance_method<objc_class_NSFileManager>)},
    {},
};
const MethodRow NSFileManager_methods[] = {{"URLForUbiquityContainerIdentifier:", shim(return_nil)}, {}};

const MethodRow NSNotificationCenter_class_methods[] = {
    {"defaultCenter", shim(shared_instance_method<objc_class_NSNotificationCenter>)},
    {},
};
const MethodRow NSNotificationCenter_methods[] = {
    {"addObserver:selector:name:object:", shim(do_nothing)},
    {"removeObserver:name:object:", shim(do_nothing)},
    {"removeObserver:", shim(do_nothing)},
    {"addObserverForName:object:queue:usingBlock:", shim(add_observer_with_block)},
    {},
};

const MethodRow NSApplication_class_methods[] = {
    {"sharedApplication", shim(shared_instance_method<objc_class_NSApplication>)},
    {},
};
const MethodRow NSApplication_methods[] = {{"mainWindow", shim(return_nil)}, {}};

const MethodRow NSJSONSerialization_class_methods[] = {
    {"dataWithJSONObject:options:error:", shim(data_with_json_object)},
    {},
};
const MethodRow NSJSONSerialization_methods[] = {{}};

}  // namespace vlm
