#include "kovjson/jsonlayout.h"

#include <functional>
#include <memory>
#include <string>

#include "kovjson/jsonread.h"
#include "kovjson/layoutreader.h"

using Json = nlohmann::ordered_json;

KovJsonError::KovJsonError(const std::string& file, const std::string& pointer,
                           const std::string& text)
    : std::runtime_error(file + ": " + (pointer.empty() ? "" : pointer + ": ") + text),
      file(file),
      pointer(pointer),
      text(text) {}

std::string kovJsonPointerTo(const std::string& pointer, const std::string& name) {
  std::string escaped;
  for (char c : name) {
    if (c == '~') {
      escaped += "~0";
    } else if (c == '/') {
      escaped += "~1";
    } else {
      escaped += c;
    }
  }
  return pointer + "/" + escaped;
}

std::string kovJsonPointerTo(const std::string& pointer, size_t index) {
  return pointer + "/" + std::to_string(index);
}

const KovJsonOption* KovJsonField::FindOption(uint32_t optionID) const {
  for (const KovJsonOption& o : options) {
    if (o.id == optionID) return &o;
  }
  return nullptr;
}

const KovJsonOption* KovJsonField::FindOption(const std::string& optionName) const {
  for (const KovJsonOption& o : options) {
    if (o.name == optionName) return &o;
  }
  return nullptr;
}

const KovJsonField* kovJsonTopField(const KovJsonBlock& blk, uint32_t fieldID) {
  for (const KovJsonField& f : blk.fields) {
    if (f.id == fieldID) return &f;
  }
  return nullptr;
}

std::unique_ptr<CKovJsonLayout> CKovJsonLayout::LoadFile(const std::string& path,
                                                         bool exportBlocks) {
  return Load(kovJsonReadFile(path), path, exportBlocks);
}

std::unique_ptr<CKovJsonLayout> CKovJsonLayout::Load(const std::string& text,
                                                     const std::string& file, bool exportBlocks) {
  Json doc = kovJsonParse(text, file);
  std::unique_ptr<CKovJsonLayout> layout(new CKovJsonLayout());
  layout->file = file;
  KovJsonLayoutReader(*layout, exportBlocks).Read(doc);
  return layout;
}

CKovJsonLayout::~CKovJsonLayout() { Unregister(); }

const KovJsonBlock* CKovJsonLayout::FindBlock(uint16_t blkID) const {
  for (const KovJsonBlock& blk : blocks) {
    if (blk.id == blkID) return &blk;
  }
  return nullptr;
}

const KovJsonBlock* CKovJsonLayout::FindBlock(const std::string& name) const {
  for (const KovJsonBlock& blk : blocks) {
    if (blk.name == name) return &blk;
  }
  return nullptr;
}

const KovJsonBlock* CKovJsonLayout::FindBlockByKovType(uint16_t kovType) const {
  for (const KovJsonBlock& blk : blocks) {
    if (blk.kovType == kovType) return &blk;
  }
  return nullptr;
}

std::unordered_map<uint32_t, const KovJsonField*> CKovJsonLayout::GetFieldsByID() const {
  std::unordered_map<uint32_t, const KovJsonField*> byID;
  std::function<void(const std::vector<KovJsonField>&)> add =
      [&](const std::vector<KovJsonField>& fields) {
        for (const KovJsonField& f : fields) {
          byID[f.id] = &f;
          add(f.entry);
          for (const KovJsonOption& o : f.options) add(o.fields);
        }
      };
  for (const KovJsonBlock& blk : blocks) add(blk.fields);
  return byID;
}
