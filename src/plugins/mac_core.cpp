// QKMacCore: what managed code calls for its saved progress and for the system's language.
//
// The cloud functions send the messages that game code would send. A setter's value comes before its key. Texts are
// NUL-terminated UTF-8, null for the empty one; the caller owns a text that is returned, and frees it.
#include "plugins/mac_core.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "objc/ns_string.h"
#include "objc/object.h"
#include "support/sysv.h"

namespace vlm {
namespace {

/// Null when memory is out.
char* heap_copy(std::string_view text) {
  auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

// ---- Cloud ----------------------------------------------------------------------------------------------------------

ObjcObject* default_store() { return objc_send<ObjcObject*>(&objc_class_NSUbiquitousKeyValueStore, "defaultStore"); }

template <class Result>
Result get(Selector selector, const char* key) {
  return objc_send<Result>(default_store(), selector, ns_string_new(key));
}

template <class Value>
void set(Selector selector, Value value, const char* key) {
  objc_send<void>(default_store(), selector, value, ns_string_new(key));
}

/// Every change is on disk already.
SYSV std::int32_t cloud_synchronize() {
  default_store();
  return 1;
}

/// The object to tell about changes from other machines. There are no such changes.
SYSV void cloud_initialize(const char* /* name */) { default_store(); }
SYSV void cloud_did_change() { default_store(); }

SYSV char* cloud_string(const char* key) {
  const char* const text = ns_string_utf8(get<ObjcObject*>("stringForKey:", key));
  return text != nullptr ? heap_copy(text) : nullptr;
}
SYSV void cloud_set_string(const char* value, const char* key) { set("setObject:forKey:", ns_string_new(value), key); }

SYSV std::int64_t cloud_int(const char* key) { return get<std::int64_t>("longLongForKey:", key); }
SYSV void cloud_set_int(std::int32_t value, const char* key) { set("setLongLong:forKey:", std::int64_t{value}, key); }

SYSV float cloud_float(const char* key) { return static_cast<float>(get<double>("doubleForKey:", key)); }
SYSV void cloud_set_float(float value, const char* key) { set("setDouble:forKey:", double{value}, key); }

/// 32 bits wide, as managed code reads a truth value.
SYSV std::int32_t cloud_bool(const char* key) { return get<ObjcBool>("boolForKey:", key); }
SYSV void cloud_set_bool(std::int32_t value, const char* key) { set("setBool:forKey:", value, key); }

SYSV void cloud_remove(const char* key) { objc_send<void>(default_store(), "removeObjectForKey:", ns_string_new(key)); }

/// All keys in the store's order, with the separator between them.
SYSV char* cloud_keys(const char* separator) {
  auto* const entries = objc_send<ObjcObject*>(default_store(), "dictionaryRepresentation");
  auto* const keys = objc_send<ObjcObject*>(entries, "allKeys");
  const auto count = objc_send<std::uint64_t>(keys, "count");
  std::string joined;
  for (std::uint64_t i = 0; i < count; ++i) {
    if (i > 0 && separator != nullptr) joined += separator;
    joined += ns_string_utf8(objc_send<ObjcObject*>(keys, "objectAtIndex:", i));
  }
  return heap_copy(joined);
}

// ---- Locale and device ----------------------------------------------------------------------------------------------

SYSV char* language_code() { return heap_copy("en"); }
SYSV char* country_code() { return heap_copy("US"); }
SYSV char* locale_string() { return heap_copy("en_US"); }
SYSV char* device_os() { return heap_copy("macOS 13.0"); }

/// The message is dropped.
SYSV void log_to_device_console(const char* /* message */) {}

}  // namespace

const PluginSymbol mac_core_symbols[] = {
    {"QKCloud_Synchronize", shim(cloud_synchronize)},
    {"QKCloud_InitializeWithGameObjectName", shim(cloud_initialize)},
    {"QKCloud_StringForKey", shim(cloud_string)},
    {"QKCloud_SetStringForKey", shim(cloud_set_string)},
    {"QKCloud_IntForKey", shim(cloud_int)},
    {"QKCloud_SetIntForKey", shim(cloud_set_int)},
    {"QKCloud_FloatForKey", shim(cloud_float)},
    {"QKCloud_SetFloatForKey", shim(cloud_set_float)},
    {"QKCloud_BoolForKey", shim(cloud_bool)},
    {"QKCloud_SetBoolForKey", shim(cloud_set_bool)},
    {"QKCloud_RemoveForKey", shim(cloud_remove)},
    {"QKCloud_RetrieveAllCloudKeys", shim(cloud_keys)},
    {"QKCloud_CloudDidChange", shim(cloud_did_change)},
    {"Unity_GetLanguageCode", shim(language_code)},
    {"Unity_GetISO2CountryCode", shim(country_code)},
    {"Unity_GetLocaleString", shim(locale_string)},
    {"Unity_GetDeviceOS", shim(device_os)},
    {"Unity_LogToDeviceConsole", shim(log_to_device_console)},
    {},
};

}  // namespace vlm
