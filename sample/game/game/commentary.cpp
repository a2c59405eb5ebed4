#include "game/commentary.h"

#include <string>

/// Made for the first who asks: the guard around that is the library's, and so are some of the string's functions.
static std::string& bounces() {
  static std::string text;
  return text;
}

void comment_on_bounce(bool side, bool end) {
  std::string& text = bounces();
  if (!text.empty()) text += ", ";
  text += side && end ? "corner" : side ? "side" : "end";
  constexpr size_t limit = 200;
  if (text.size() > limit) text.erase(0, text.find(' ', limit / 2) + 1);
}

const char* commentary() { return bounces().empty() ? "none" : bounces().c_str(); }
