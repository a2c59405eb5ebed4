// The accesses to thread storage through gs: what Tessera would make of them, and whether the library's list is theirs.
#include "inspect/gather.h"
#include "tessera/check_list.h"
#include "tessera/instruction.h"
#include "tessera/patch_image.h"

namespace vlm::inspect {
namespace {

/// How a replaced piece got room for a jump.
const char* kind_of(const tessera::PatchedPiece& piece) {
  std::size_t accesses = 0, others_before = 0, others_behind = 0;
  for (auto rest = piece.bytes; !rest.empty();) {
    const auto decoded = tessera::decode(rest);
    if (!decoded) break;
    if (tessera::uses_gs(*decoded)) {
      ++accesses;
    } else {
      ++(accesses == 0 ? others_before : others_behind);
    }
    rest = rest.subspan(decoded->size());
  }
  if (accesses > 1) return "several accesses at once";
  if (others_before != 0) return others_behind != 0 ? "with neighbours on both sides" : "with neighbours in front";
  return others_behind != 0 ? "with neighbours behind" : "the instruction alone";
}

}  // namespace

ThreadStorage gather_thread_storage(const MachImage& image, const Library* library, const tessera::Progress& progress) {
  ThreadStorage storage;
  const auto patch = tessera::patch_image(image, progress);
  if (!patch) {
    storage.fault = patch.error().text;
    return storage;
  }
  storage.sites = patch->site_count;
  storage.refusals = patch->refusals;
  storage.unread = patch->unread;
  for (const tessera::PatchedPiece& piece : patch->pieces) ++storage.pieces[kind_of(piece)];

  using enum ThreadStorage::List;
  if (library == nullptr) return storage;
  storage.list = none;
  if (library->patch_list.empty()) return storage;
  const auto check = tessera::check_patch_list(image, library->patch_list, progress);
  if (!check) {
    storage.list_problems.push_back(check.error().text);
  } else {
    storage.list_entries = check->entries;
    storage.list_problems = check->problems;
  }
  storage.list = storage.list_problems.empty() ? fits : differs;
  return storage;
}

}  // namespace vlm::inspect
