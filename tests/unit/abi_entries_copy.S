# A second copy of the library's entries under names of the tests' own, so that what they call are the recording
# functions of abi_entries_test.cpp. The code is the library's own, line by line. Of the variadic entries, which come from
# one macro, one for each number of named arguments is tested.
#define trap_entry test_trap_entry
#define icall_entry test_icall_entry
#define trace_entry test_trace_entry
#define objc_null_method test_objc_null_method
#define objc_msgSend_entry test_objc_msgSend_entry
#define objc_msgSend_stret_entry test_objc_msgSend_stret_entry
#define snprintf_entry test_snprintf_entry
#define fprintf_entry test_fprintf_entry
#define sscanf_entry test_sscanf_entry
#define NSLog_entry test_NSLog_entry
#define open_entry test_open_entry
#define fcntl_entry test_fcntl_entry
#define ioctl_entry test_ioctl_entry
#define stringWithFormat_entry test_stringWithFormat_entry
#define initWithObjects_entry test_initWithObjects_entry
#define setjmp_entry test_setjmp_entry
#define longjmp_entry test_longjmp_entry
#define call_win64 test_call_win64
#define call_sysv test_call_sysv

#define trap_unimplemented test_trap_unimplemented
#define dispatch_managed_call test_dispatch_managed_call
#define objc_lookup test_objc_lookup
#define objc_method_cache test_objc_method_cache
#define vsnprintf_body test_vsnprintf_body
#define fprintf_body test_fprintf_body
#define NSLog_body test_NSLog_body

#include "abi/entries.S"
