// The layout reader, pass 3: the library's layout objects of the description, and their
// verification (kovjson/layoutreader.h).
#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kovjson/layoutreader.h"

using Json = nlohmann::ordered_json;

void KovJsonLayoutReader::Build() {
  try {
    BuildObjects();
    out.Register();
    out.cpLayout->DoPostLayoutVerification();
  } catch (CMevGenException* e) {
    std::string at;
    std::string text = kovJsonNamedText(out.blocks, e->GetMessage(), &at);
    delete e;
    out.Unregister();
    in.Fail(at, "the layout fails verification: " + text);
  }
}

void KovJsonLayoutReader::BuildObjects() {
  out.cpLayout = std::make_unique<CKovCpLayout>(versionIndex, modelIndex, out.maxImageSize,
                                                saveToSeparateFiles ? 1 : 0);
  CKovCpLayout* cp = out.cpLayout.get();
  for (const auto& [number, access] : partitionList) cp->AddPartition(number, access);
  for (KovJsonBlock& blk : out.blocks) {
    std::unique_ptr<CKovBlkLayout> layout = MakeBlock(blk);
    blk.layout = layout.get();
    AddFields(layout.get(), layout->GetDataLayout(), blk.fields);
    layout->SetPartitionNum(blk.partition);
    layout->SetAccessRights(blk.access);
    layout->SetVariableSzStatus(blk.variableSize ? 1 : 0);
    cp->HasUniqueKovName(layout.get());
    cp->AddBlkLayout(layout.get());
    layout.release();
  }
  collectAll([](KovJsonField& f) { kovRegisterString(f.id, f.name); });
}

void KovJsonLayoutReader::collectAll(const std::function<void(KovJsonField&)>& visit) {
  for (KovJsonBlock& blk : out.blocks) kovJsonVisitFields(blk.fields, visit);
}

std::unique_ptr<CKovBlkLayout> KovJsonLayoutReader::MakeBlock(const KovJsonBlock& blk) {
  auto data = std::make_unique<CKovDataLayout>(kBlkLayoutType, 0, 7, 0, true);
  KovBlkLayoutAttrib attrib(blk.kovType, blk.kovID, blk.multi ? 1 : 0, blk.padded ? 1 : 0);
  std::unique_ptr<CKovBlkLayout> layout;
  switch (blk.kind) {
    case KovJsonBlkKind::Standard:
    case KovJsonBlkKind::Header:
      layout = std::make_unique<CKovBlkLayout>(blk.id, attrib, blk.name, 0, data.release(),
                                               blk.maxDataSize,
                                               blk.kind == KovJsonBlkKind::Header ? 1 : 0);
      if (blk.kind == KovJsonBlkKind::Header) layout->SetDistKLSBlkID(blk.pairBlkID);
      break;
    case KovJsonBlkKind::Kls:
      layout = std::make_unique<CKovKLSBlkLayout>(blk.id, attrib, blk.name, data.release(),
                                                  blk.maxDataSize, 0, 0, 0, nullptr);
      break;
    case KovJsonBlkKind::DistKls:
      // maxLLEQ 0: the listlet maximum comes from the block's rule.
      layout = std::make_unique<CKovKLSBlkLayout>(blk.id, attrib, blk.name, data.release(),
                                                  blk.maxDataSize, 1, 0, blk.pairBlkID,
                                                  kovJsonRuleListletMax);
      break;
  }
  return layout;
}

void KovJsonLayoutReader::AddFields(CKovBlkLayout* blk, CKovDataLayout* dl,
                                    std::vector<KovJsonField>& fields) {
  for (KovJsonField& f : fields) {
    uint32_t prev = dl->GetIDOfLastFieldInLayout();
    auto position = static_cast<int32_t>(dl->GetOrderedFieldIDsList().size());
    std::unique_ptr<CKovFieldLayout> layout = MakeField(blk, dl, f);
    f.layout = layout.get();
    dl->AddField(f.id, prev, layout.release(), position);
  }
}

std::unique_ptr<CKovFieldLayout> KovJsonLayoutReader::MakeField(CKovBlkLayout* blk,
                                                                CKovDataLayout* dl,
                                                                KovJsonField& f) {
  switch (f.kind) {
    case KovJsonKind::Number:
      return std::make_unique<CKovNumFieldLayout>(f.id, f.byteOffset, f.bits, f.msbStart, f.fixed,
                                                  f.gap, dl);
    case KovJsonKind::Char:
      return std::make_unique<CKovCharFieldLayout>(f.id, f.byteOffset, f.msbStart, f.charType,
                                                   f.fixed, f.gap, dl);
    case KovJsonKind::String:
      return std::make_unique<CKovStrFieldLayout>(f.id, f.byteOffset, f.msbStart, f.charType,
                                                  f.chars, f.fixed, f.gap, dl);
    case KovJsonKind::Name: {
      auto layout = std::make_unique<CKovNameFieldLayout>(f.id, f.byteOffset, f.bits, f.msbStart,
                                                          f.fixed, f.gap, dl, f.refBlkID);
      // Entered so that the verification warns about a reference to a block the layout lacks.
      blk->AddFieldToVerificationMap(f.id, layout.get());
      return layout;
    }
    case KovJsonKind::List: {
      auto entry = std::make_unique<CKovDataLayout>(ListEntryLayout, 0, 7, f.id, false);
      AddFields(blk, entry.get(), f.entry);
      bool calculated = f.listFormat == VarSzCalcLeq || f.listFormat == VarSzCalcLeqAlt;
      KovListAttribStruct attrib(f.leqID, f.listFormat, f.maxEntries, 0, f.entryBits, f.leqBlkID,
                                 calculated ? kovJsonRuleQuantity : nullptr);
      bool verify = false;
      kovValidateSglListParms(f.id, attrib, blk->GetBlkID(), verify);
      auto layout = std::make_unique<CKovListFieldLayout>(f.id, f.byteOffset, f.msbStart, attrib,
                                                          f.fixed, f.gap, dl, entry.release());
      if (verify) blk->AddFieldToVerificationMap(f.id, layout.get());
      return layout;
    }
    case KovJsonKind::Union: {
      KovUnionAttribStruct attrib;
      attrib.unionFormat = f.unionFormat;
      attrib.lengthInBits = f.bits;
      attrib.upLayoutSelectionFunc = kovJsonRuleOption;
      for (const KovJsonDiscr& d : f.discrs) {
        attrib.discrIDArr.push_back(d.fieldID);
        if (CKovUnionFieldLayout::IsSplitFormat(f.unionFormat)) {
          attrib.discrBlkIDArr.push_back(d.blkID);
        }
      }
      if (!attrib.discrIDArr.empty()) kovValidateUnionParms(f.id, attrib, blk->GetBlkID());
      auto layout = std::make_unique<CKovUnionFieldLayout>(f.id, f.byteOffset, f.msbStart, attrib,
                                                           f.fixed, f.gap, dl, blk->GetBlkID());
      for (KovJsonOption& o : f.options) {
        auto data = std::make_unique<CKovDataLayout>(kOptionLayoutType, 0, 7, f.id, false);
        AddFields(blk, data.get(), o.fields);
        o.dataLayout = data.get();
        layout->AddToUnionMap(o.id, new CKovUnionLayoutOpt(data.release(), 0, 0, o.id, o.bits, 0));
      }
      blk->AddFieldToVerificationMap(f.id, layout.get());
      return layout;
    }
  }
  return nullptr;
}
