// kovJsonNamedText, declared in kovjson/jsonlayout.h: the library's texts in a layout's names.
#include <algorithm>
#include <functional>
#include <regex>
#include <unordered_map>

#include "kovjson/jsonlayout.h"

std::string kovJsonNamedText(const std::vector<KovJsonBlock>& blocks, const std::string& text,
                             std::string* pointer) {
  std::unordered_map<uint32_t, const KovJsonField*> fields;
  std::function<void(const std::vector<KovJsonField>&)> add =
      [&](const std::vector<KovJsonField>& fs) {
        for (const KovJsonField& f : fs) {
          fields.emplace(f.id, &f);
          add(f.entry);
          for (const KovJsonOption& o : f.options) add(o.fields);
        }
      };
  for (const KovJsonBlock& blk : blocks) add(blk.fields);
  std::string flat;
  for (char c : text) {
    if (c != '\n') {
      flat += c;
    } else if (!flat.empty() && flat.back() != ' ') {
      flat += ' ';
    }
  }
  while (!flat.empty() && flat.back() == ' ') flat.pop_back();
  // A word that names a field or a block, then its id in decimal.
  static const std::regex named(
      R"(\b((?:[Ff]ield|[Ll]ist|[Uu]nion|[Dd]iscriminant|LEQ)(?: field)?|[Bb]lock(?: with ID)?) (\d{1,10})\b)");
  std::string out;
  std::string first;
  auto last = flat.cbegin();
  for (std::sregex_iterator it(flat.begin(), flat.end(), named), end; it != end; ++it) {
    const std::smatch& m = *it;
    out.append(last, m[0].first);
    last = m[0].second;
    unsigned long long id = std::stoull(m[2].str());
    std::string word = m[1].str();
    std::string name, at;
    if (word[0] == 'B' || word[0] == 'b') {
      for (const KovJsonBlock& blk : blocks) {
        if (blk.id == id) {
          name = blk.name;
          at = blk.at;
        }
      }
      if (word.size() > 5) word.resize(5);  // "block with ID 3" reads "block 'Zone'"
    } else {
      auto f = fields.find(static_cast<uint32_t>(std::min<unsigned long long>(id, 0xFFFFFFFFu)));
      if (f != fields.end() && id <= 0xFFFFFFFFu) {
        name = f->second->name;
        at = f->second->at;
      }
    }
    if (name.empty()) {
      out.append(m[0].first, m[0].second);
      continue;
    }
    out += word + " '" + name + "'";
    if (first.empty()) first = at;
  }
  out.append(last, flat.cend());
  if (pointer != nullptr) *pointer = first;
  return out;
}
