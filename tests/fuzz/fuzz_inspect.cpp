// Any bytes as an image that is inspected, and as the library that it is judged by: whatever is in them, both reports
// come out, and the JSON has no byte that it may not have.
#include <cstdlib>

#include "inspect/gather.h"
#include "inspect/library.h"
#include "inspect/writers.h"
#include "shared/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vlm::inspect;
  const auto file = std::as_bytes(std::span(data, size));
  Library library;
  library.family_of = {{"_malloc", "memory"}, {"_OBJC_CLASS_$_NSObject", "NSObject"}};
  library.patch_list = file;
  if (const auto read = read_library("library", file)) {
    library = *read;
  } else if (read.error().text.empty()) {
    std::abort();
  }
  const Facts facts = gather("image", file, &library);
  if (facts.status != STARTS && facts.reasons.empty()) std::abort();
  for (const std::string& report : {write_text(facts, true), write_json(facts)}) {
    for (std::string_view rest = report; !rest.empty();) {
      const std::size_t length = vlm::tools::utf8_length(rest);
      if (length == 0) std::abort();
      rest.remove_prefix(length);
    }
  }
  return 0;
}
