#include "host/import_trace.h"

#include <windows.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "abi/entries.h"
#include "abi/stubs.h"
#include "binding/shim_table.h"
#include "diag/log.h"
#include "host/shim_catalogue.h"
#include "reports/trace_log.h"
#include "reports/trace_ring.h"
#include "support/save_directory.h"
#include "support/text.h"

namespace vlm {
namespace {

struct Candidate {
  std::string_view family;
  const ShimEntry* row;
  bool is_chosen = false;
};

std::vector<Candidate> all_candidates() {
  std::vector<Candidate> all;
  for (const ShimFamily& family : shim_families()) {
    for (const ShimEntry& row : *family.rows) all.push_back({family.name, &row});
  }
  return all;
}

/// Data is read where it lies, not called.
bool is_data(const ShimEntry& row) {
  constexpr DWORD executable = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
  MEMORY_BASIC_INFORMATION region;
  return VirtualQuery(row.address, &region, sizeof region) == 0 || (region.Protect & executable) == 0;
}

/// Chooses what one name of the list says, or leaves it out when it has a '-' in front.
void choose(std::vector<Candidate>& candidates, std::string_view name) {
  const bool is_wanted = !name.starts_with('-');
  if (!is_wanted) name.remove_prefix(1);
  bool is_known = false;
  for (Candidate& candidate : candidates) {
    const bool is_named = candidate.row->name == name;
    if (!is_named && candidate.family != name && name != "all") continue;
    is_known = true;
    if (is_data(*candidate.row)) {
      if (is_named) log_message(0, "[trace] %s is data, which is read and not called", candidate.row->name);
      continue;
    }
    candidate.is_chosen = is_wanted;
  }
  if (!is_known)
    log_message(0, "[trace] no import and no family of imports has the name %s", std::string(name).c_str());
}

void choose_all(std::vector<Candidate>& candidates, std::string_view list) {
  while (!list.empty()) {
    std::string_view name = list.substr(0, list.find(','));
    list.remove_prefix(std::min(name.size() + 1, list.size()));
    while (name.starts_with(' ')) name.remove_prefix(1);
    while (name.ends_with(' ')) name.remove_suffix(1);
    if (!name.empty()) choose(candidates, name);
  }
}

}  // namespace

void start_import_trace() {
  const std::string list = read_environment(L"VLM_TRACE").text;
  if (list.empty()) return;
  std::vector<Candidate> candidates = all_candidates();
  choose_all(candidates, list);
  const auto count = std::ranges::count(candidates, true, &Candidate::is_chosen);
  if (count == 0) return;

  const std::wstring path = make_data_directory() + L"\\trace.log";
  if (!start_trace_log(path)) {
    log_message(0, "[trace] cannot write PCSaveData\\trace.log (error %lu): nothing is traced", GetLastError());
    return;
  }
  start_recording();
  for (const Candidate& candidate : candidates) {
    if (!candidate.is_chosen) continue;
    const auto* const import = new TracedImport{candidate.row->address, candidate.row->name};
    replace_shim(candidate.row->name, make_transparent_stub(import, reinterpret_cast<const void*>(trace_entry)));
  }
  log_message(0, "[trace] %zu imports are traced in PCSaveData\\trace.log", static_cast<std::size_t>(count));
}

}  // namespace vlm
