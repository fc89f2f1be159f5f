#include "kov/report/xmldata.h"

#include <cstdio>

#include "kov/fields/charfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/layout/fieldlayout.h"
#include "kov/platform/format.h"

namespace {

const char* const kProlog[] = {
    "<?xml version=\"1.0\"?>",
    "<!DOCTYPE CodeplugData [",
    "<!ELEMENT CodeplugData (Block+)>",
    "<!ELEMENT Block (BlockName, Listlet*, Field*, List*, Union*)>",
    "<!ELEMENT Field (Name, ByteOffset, BitOffset, Length, Value)>",
    "<!ELEMENT Name (#PCDATA)>",
    "<!ELEMENT ByteOffset (#PCDATA)>",
    "<!ELEMENT BitOffset (#PCDATA)>",
    "<!ELEMENT Length (#PCDATA)>",
    "<!ELEMENT Value (#PCDATA)>",
    "<!ELEMENT BlockName (#PCDATA)>",
    "<!ELEMENT List (LED*)>",
    "<!ELEMENT LED (Field*, Union*)>",
    "<!ELEMENT Union (Field*, List*)>",
    "<!ELEMENT ListLet (Union* | List*)>",
    "]>",
    "<CodeplugData>",
};

}  // namespace

CKovXmlData::CKovXmlData() {
  for (const char* line : kProlog) AddString(line);
  tabStr = "\t";
}

void CKovXmlData::AddString(std::string line) {
  for (size_t pos = line.find('&'); pos != std::string::npos; pos = line.find('&', pos + 1)) {
    line.insert(pos + 1, "amp;");
  }
  line.push_back('\n');
  xmlLines.push_back(std::move(line));
}

void CKovXmlData::ShortenTabStr() {
  if (!tabStr.empty()) tabStr.pop_back();
}

void CKovXmlData::AddStartTagLine(const std::string& tag) {
  AddString(tabStr + tag);
  tabStr.push_back('\t');
}

void CKovXmlData::AddEndTagLine(const std::string& tag) {
  ShortenTabStr();
  AddString(tabStr + tag);
}

void CKovXmlData::StartBlkInstance(const std::string& blkName, uint16_t instance) {
  AddStartTagLine("<Block>");
  AddString(kovFormat("%s<BlockName> %s_%d </BlockName>", tabStr.c_str(), blkName.c_str(),
                      instance));
}

void CKovXmlData::AddPrimitiveField(const CKovField* field, const CKovFieldLayout* layout) {
  AddStartTagLine("<Field>");
  const char* tab = tabStr.c_str();
  AddString(kovFormat("%s<Name> %s </Name>", tab, field->GetFieldName().c_str()));
  AddString(kovFormat("%s<ByteOffset> 0x%x </ByteOffset>", tab, layout->GetByteOffset()));
  AddString(kovFormat("%s<BitOffset> 0x%x </BitOffset>", tab, layout->GetMsbStart()));
  AddString(kovFormat("%s<Length> 0x%x </Length>", tab, field->GetImageSize()));
  if (field->IsChar()) {
    AddString(kovFormat("%s<Value> %c </Value>", tab,
                        static_cast<const CKovCharField*>(field)->GetValue()));
  } else if (field->IsNumber()) {
    AddString(kovFormat("%s<Value> 0x%x </Value>", tab,
                        static_cast<const CKovNumField*>(field)->GetValue()));
  } else if (field->IsKovName()) {
    AddString(kovFormat("%s<Value> 0x%08x </Value>", tab,
                        static_cast<const CKovNameField*>(field)->GetValue()));
  } else if (field->IsString()) {
    AddString(kovFormat("%s<Value> %s </Value>", tab,
                        static_cast<const CKovStrField*>(field)->GetValue().c_str()));
  }
  AddEndTagLine("</Field>");
}

void CKovXmlData::CreateXmlFile(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file != nullptr) {
    for (const std::string& line : xmlLines) std::fwrite(line.data(), 1, line.size(), file);
    std::fclose(file);
  }
  xmlLines.clear();
}
