// What everything that was found comes to.
#include <algorithm>
#include <ranges>

#include "inspect/gather.h"

namespace vlm::inspect {
namespace {

/// "3 imports ...: _a, _b, _c"; of a long list only its beginning.
std::string with_names(std::size_t count, const char* one, const char* many, const std::vector<std::string>& names) {
  constexpr std::size_t shown = 5;
  std::string text = std::to_string(count) + " " + (count == 1 ? one : many) + ": ";
  for (std::size_t i = 0; i < std::min(names.size(), shown); ++i) text += (i == 0 ? "" : ", ") + names[i];
  if (names.size() > shown) text += " and " + std::to_string(names.size() - shown) + " more";
  return text;
}

std::vector<std::string> names_of(const std::vector<ImportedSymbol>& imports, Answer answer) {
  std::vector<std::string> names;
  for (const ImportedSymbol& import : imports) {
    if (import.answer == answer) names.push_back(import.name);
  }
  return names;
}

/// First names of functions that programs call early or everywhere; the others follow as they are.
std::vector<std::string> by_weight(const std::vector<ImportedSymbol>& imports, Answer answer) {
  std::vector<const ImportedSymbol*> chosen;
  for (const ImportedSymbol& import : imports) {
    if (import.answer == answer) chosen.push_back(&import);
  }
  std::ranges::sort(chosen, {},
                    [](const ImportedSymbol* each) { return std::pair(call_rank(each->name), each->name); });
  std::vector<std::string> names;
  names.reserve(chosen.size());
  for (const ImportedSymbol* import : chosen) names.push_back(import->name);
  return names;
}

void judge_what_ends_the_start(const Facts& facts, std::vector<std::string>& reasons) {
  if (!facts.refusal.empty()) reasons.push_back(facts.refusal);
  if (facts.refusal.empty() && !facts.format.has_dyld_info) {
    reasons.push_back("it has no dyld information: its pointers stay as they are, and none of its functions is found");
  }
  if (facts.linkage) std::ranges::copy(facts.linkage->fixups.faults, std::back_inserter(reasons));
  if (facts.initializers) std::ranges::copy(facts.initializers->outside_code, std::back_inserter(reasons));
  if (!facts.thread_storage) return;
  const ThreadStorage& storage = *facts.thread_storage;
  if (!storage.fault.empty()) reasons.push_back("its code cannot be searched for thread storage: " + storage.fault);
  if (!storage.refusals.empty()) {
    reasons.push_back(with_names(storage.refusals.size(), "access to thread storage cannot be patched",
                                 "accesses to thread storage cannot be patched", storage.refusals));
  }
  if (storage.list == ThreadStorage::List::differs) {
    reasons.push_back("the patch list of the library was made for another image: fit the library with Tessera");
  }
}

void judge_what_is_missing(const Facts& facts, std::vector<std::string>& reasons) {
  const auto tell = [&](const char* one, const char* many, const std::vector<std::string>& names) {
    if (!names.empty()) reasons.push_back(with_names(names.size(), one, many, names));
  };
  if (facts.linkage) {
    const auto& imports = facts.linkage->imports;
    if (!names_of(imports, Answer::not_judged).empty()) reasons.push_back("imports were not judged: give --library");
    tell("import without an implementation, a call of which ends the game",
         "imports without an implementation, a call of which ends the game", by_weight(imports, Answer::trap));
    tell("import is an empty object", "imports are empty objects", names_of(imports, Answer::zero_block));
    tell("export is missing", "exports are missing", facts.linkage->missing_exports);
    tell("reflection function is missing", "reflection functions are missing", facts.linkage->missing_reflection);
  }
  if (facts.initializers) {
    tell("kind of initializer is not run", "kinds of initializers are not run", facts.initializers->not_run);
  }
  if (const std::uint64_t variables = thread_local_variables(facts.format); variables != 0) {
    reasons.push_back(std::to_string(variables) +
                      (variables == 1 ? " thread-local variable is" : " thread-local variables are") +
                      " not set up, an access of which ends the game");
  }
  if (facts.thread_storage) {
    tell("piece of code could not be looked at", "pieces of code could not be looked at", facts.thread_storage->unread);
  }
  if (facts.unwind) {
    if (!facts.unwind->present) reasons.push_back("an exception ends the game: there is no __unwind_info");
    std::vector<std::string> functions;
    for (const OpaqueFrame& frame : facts.unwind->opaque) functions.push_back(frame.function);
    tell("function that no exception gets past", "functions that no exception gets past", functions);
    if (!facts.unwind->fault.empty()) reasons.push_back("exceptions end the game: " + facts.unwind->fault);
  }
}

}  // namespace

void judge(Facts& facts) {
  judge_what_ends_the_start(facts, facts.reasons);
  if (!facts.reasons.empty()) {
    facts.status = NOT_LOADED;
    return;
  }
  judge_what_is_missing(facts, facts.reasons);
  facts.status = facts.reasons.empty() ? STARTS : SOMETHING_MISSING;
}

}  // namespace vlm::inspect
