// Rows of the entries in entries.S. stringWithFormat: and initWithObjects: are methods and so have no row.
#include "abi/shims.h"

#include "abi/entries.h"

namespace vlm {

#define ENTRY(function) reinterpret_cast<const void*>(&function)

const ShimEntry abi_block1_shims[4] = {
    {"__setjmp", ENTRY(setjmp_entry)},
    {"_setjmp", ENTRY(setjmp_entry)},
    {"__longjmp", ENTRY(longjmp_entry)},
    {"_longjmp", ENTRY(longjmp_entry)},
};

const ShimEntry abi_block2_shims[3] = {
    {"_open", ENTRY(open_entry)},
    {"_fcntl", ENTRY(fcntl_entry)},
    {"_ioctl", ENTRY(ioctl_entry)},
};

const ShimEntry abi_block6_shims[3] = {
    {"_objc_msgSend", ENTRY(objc_msgSend_entry)},
    {"_objc_msgSend_stret", ENTRY(objc_msgSend_stret_entry)},
    {"_NSLog", ENTRY(NSLog_entry)},
};

}  // namespace vlm
