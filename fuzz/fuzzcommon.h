// Shared parts of the fuzz targets: the sample layout, quiet message boxes, and a check that a
// packed tree and an unpacked one hold the same values.
#ifndef KOV_FUZZ_FUZZCOMMON_H
#define KOV_FUZZ_FUZZCOMMON_H

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "examples/sample.h"
#include "kov/kov.h"

// The sample layout, made once per process; message boxes are dropped.
inline const CKovCpLayout* fuzzSampleLayout() {
  static std::unique_ptr<CKovCpLayout> layout = [] {
    kovSetMessageBoxHandler([](const std::string&) {});
    return kovSampleLayout();
  }();
  return layout.get();
}

// Stops the run with what differs: the fuzzer reports it as a crash with this text.
[[noreturn]] inline void fuzzMismatch(const std::string& what) {
  std::fprintf(stderr, "pack and unpack disagree: %s\n", what.c_str());
  std::abort();
}

// The value the image holds for a packed primitive field, as text.
inline std::string fuzzExpectedText(const CKovField* f, const CKovFieldLayout* layout,
                                    const CKovPk* pk) {
  char buf[64];
  if (f->IsNumber()) {
    std::snprintf(buf, sizeof buf, "%u", static_cast<const CKovNumField*>(f)->GetValue());
  } else if (f->IsChar()) {
    std::snprintf(buf, sizeof buf, "%u", static_cast<const CKovCharField*>(f)->GetValue());
  } else if (f->IsKovName()) {
    std::snprintf(buf, sizeof buf, "%u",
                  static_cast<const CKovNameField*>(f)->GetKovNameToPack(pk, layout));
  } else {
    std::string s = static_cast<const CKovStrField*>(f)->GetValue();
    // Digit slots behind a short string read back as '0'.
    auto* strLayout = static_cast<const CKovStrFieldLayout*>(layout);
    if (strLayout->GetCharType() == CKovCharFieldLayout::Char4Bit) {
      s.resize(strLayout->GetNumberOfChars(), '0');
    }
    return s;
  }
  return buf;
}

inline std::string fuzzReadText(const CKovField* f) {
  char buf[64];
  if (f->IsNumber()) {
    std::snprintf(buf, sizeof buf, "%u", static_cast<const CKovNumField*>(f)->GetValue());
  } else if (f->IsChar()) {
    std::snprintf(buf, sizeof buf, "%u", static_cast<const CKovCharField*>(f)->GetValue());
  } else if (f->IsKovName()) {
    std::snprintf(buf, sizeof buf, "%u", static_cast<const CKovNameField*>(f)->GetValue());
  } else {
    return static_cast<const CKovStrField*>(f)->GetValue();
  }
  return buf;
}

// Every field of the packed entry must read back the same, lists and unions entry by entry.
inline void fuzzCheckEntry(const CKovPkEntry* packed, const CKovUpEntry* read,
                           const CKovDataLayout* layout, const CKovPk* pk,
                           const std::string& where) {
  if (read == nullptr) fuzzMismatch(where + ": entry missing");
  for (const auto& kv : packed->GetPkFieldMap()) {
    std::string at = where + "/" + std::to_string(kv.first);
    const CKovField* p = kv.second->GetData();
    const CKovUpField* upField = read->GetUpField(kv.first);
    if (upField == nullptr) fuzzMismatch(at + ": not read back");
    const CKovField* u = upField->GetData();
    const CKovFieldLayout* fl = layout->GetFieldLayout(kv.first);
    if (p->IsList()) {
      auto* pl = static_cast<const CKovListField*>(p);
      auto* ul = static_cast<const CKovListField*>(u);
      if (!u->IsList() || ul->GetUpEntryList()->GetCount() != pl->GetPkEntryList()->GetCount()) {
        fuzzMismatch(at + ": list differs");
      }
      auto* ll = static_cast<const CKovListFieldLayout*>(fl);
      for (int i = 0; i < pl->GetPkEntryList()->GetCount(); ++i) {
        fuzzCheckEntry(pl->GetPkEntryList()->GetAt(i), ul->GetUpEntryList()->GetAt(i),
                       ll->GetDataLayout(), pk, at + "[" + std::to_string(i) + "]");
      }
    } else if (p->IsUnion()) {
      auto* pu = static_cast<const CKovUnionField*>(p);
      auto* uu = static_cast<const CKovUnionField*>(u);
      if (!u->IsUnion() || uu->GetLayoutID() != pu->GetLayoutID()) {
        fuzzMismatch(at + ": union option differs");
      }
      auto* ul = static_cast<const CKovUnionFieldLayout*>(fl);
      fuzzCheckEntry(pu->GetPkEntry(), uu->GetUpEntry(),
                     ul->GetDataLayout(static_cast<uint16_t>(pu->GetLayoutID())), pk, at);
    } else if (fuzzReadText(u) != fuzzExpectedText(p, fl, pk)) {
      fuzzMismatch(at + ": '" + fuzzReadText(u) + "' read, '" + fuzzExpectedText(p, fl, pk) +
                   "' packed");
    }
  }
}

#endif  // KOV_FUZZ_FUZZCOMMON_H
