#include "kov/report/xmldata.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include "kov/fields/charfield.h"
#include "kov/fields/namefield.h"
#include "kov/fields/numfield.h"
#include "kov/fields/strfield.h"
#include "kov/layout/fieldlayout.h"
#include "kov/platform/fhmevfilehandler.h"
#include "kov/platform/format.h"
#include "kov/platform/msgbox.h"

namespace {

// The report goes to the file in pieces of at least this many bytes: few system calls, and a
// piece never holds more than one line beyond it.
constexpr size_t kWriteChunkSz = 64 * 1024;

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

// 1 for a code XML 1.0 can hold at all, as text or as a character reference.
bool isXmlChar(uint32_t c) {
  return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
         (c >= 0xE000 && c <= 0xFFFD);
}

// Appends one character code as the report writes it:
//   printable ASCII        as itself, '&' as "&amp;" ('<', '>' and quotes stay as they are)
//   tab, LF, CR, 0x7F up   a character reference, "&#xE9;" (a byte is its Latin-1 character)
//   any other code         <Char code="0x0"/>, since XML 1.0 can't hold it in any form
void appendChar(std::string& out, uint32_t c) {
  char buf[32];
  if (c == '&') {
    out += "&amp;";
  } else if (c >= 0x20 && c < 0x7F) {
    out.push_back(static_cast<char>(c));
  } else if (isXmlChar(c)) {
    std::snprintf(buf, sizeof buf, "&#x%X;", static_cast<unsigned>(c));
    out += buf;
  } else {
    std::snprintf(buf, sizeof buf, "<Char code=\"0x%X\"/>", static_cast<unsigned>(c));
    out += buf;
  }
}

// 1 when text is well-formed UTF-8 without overlong forms, surrogates or codes past U+10FFFF.
bool isUtf8(const std::string& text) {
  size_t i = 0;
  const size_t n = text.size();
  // Each step consumes one whole sequence or fails: bounded by the length of text.
  while (i < n) {
    auto b = static_cast<unsigned char>(text[i]);
    size_t len = b < 0x80           ? 1
                 : (b >> 5) == 0x6  ? 2
                 : (b >> 4) == 0xE  ? 3
                 : (b >> 3) == 0x1E ? 4
                                    : 0;
    if (len == 0 || len > n - i) return false;
    uint32_t c = len == 1 ? b : b & (0x7F >> len);
    for (size_t k = 1; k < len; ++k) {
      auto t = static_cast<unsigned char>(text[i + k]);
      if ((t & 0xC0) != 0x80) return false;
      c = (c << 6) | (t & 0x3F);
    }
    static const uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (c < kLeast[len] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return false;
    i += len;
  }
  return true;
}

// A text of 8-bit characters (a string value), each as appendChar writes it.
std::string xmlBytes(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char ch : text) appendChar(out, static_cast<unsigned char>(ch));
  return out;
}

// A name from the application: UTF-8 goes through as it is (but for the codes XML can't hold),
// anything else is read byte by byte as a string value is.
std::string xmlName(const std::string& name) {
  if (!isUtf8(name)) return xmlBytes(name);
  std::string out;
  out.reserve(name.size());
  for (char ch : name) {
    auto b = static_cast<unsigned char>(ch);
    if (b >= 0x80) {
      out.push_back(ch);
    } else {
      appendChar(out, b);
    }
  }
  return out;
}

}  // namespace

CKovXmlData::CKovXmlData() {
  for (const char* line : kProlog) AddString(line);
  tabStr = "\t";
}

void CKovXmlData::AddString(std::string line) {
  for (size_t pos = line.find('&'); pos != std::string::npos; pos = line.find('&', pos + 1)) {
    line.insert(pos + 1, "amp;");
  }
  AddLine(std::move(line));
}

void CKovXmlData::AddLine(std::string line) {
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
  AddLine(kovFormat("%s<BlockName> %s_%d </BlockName>", tabStr.c_str(), xmlName(blkName).c_str(),
                    instance));
}

void CKovXmlData::AddPrimitiveField(const CKovField* field, const CKovFieldLayout* layout) {
  AddStartTagLine("<Field>");
  const char* tab = tabStr.c_str();
  AddLine(kovFormat("%s<Name> %s </Name>", tab, xmlName(field->GetFieldName()).c_str()));
  AddString(kovFormat("%s<ByteOffset> 0x%x </ByteOffset>", tab, layout->GetByteOffset()));
  AddString(kovFormat("%s<BitOffset> 0x%x </BitOffset>", tab, layout->GetMsbStart()));
  AddString(kovFormat("%s<Length> 0x%x </Length>", tab, field->GetImageSize()));
  if (field->IsChar()) {
    std::string value;
    appendChar(value, static_cast<const CKovCharField*>(field)->GetValue());
    AddLine(kovFormat("%s<Value> %s </Value>", tab, value.c_str()));
  } else if (field->IsNumber()) {
    AddString(kovFormat("%s<Value> 0x%x </Value>", tab,
                        static_cast<const CKovNumField*>(field)->GetValue()));
  } else if (field->IsKovName()) {
    AddString(kovFormat("%s<Value> 0x%08x </Value>", tab,
                        static_cast<const CKovNameField*>(field)->GetValue()));
  } else if (field->IsString()) {
    AddLine(kovFormat("%s<Value> %s </Value>", tab,
                      xmlBytes(static_cast<const CKovStrField*>(field)->GetValue()).c_str()));
  }
  AddEndTagLine("</Field>");
}

void CKovXmlData::CreateXmlFile(const std::string& path) {
  std::vector<std::string> lines;
  lines.swap(xmlLines);
  if (path.empty()) return;
  // Whatever way this ends, short of the rename, the part file goes: closed, then removed.
  struct PartFile {
    std::string path;
    CFhMevFile* file = nullptr;
    ~PartFile() {
      CFhMevFileHandler::ReleaseFile(file, 1);
      if (!path.empty()) std::remove(path.c_str());
    }
  } part;
  part.path = path + kovXmlPartSuffix;
  part.file = CFhMevFileHandler::GetFile(
      part.path.c_str(), CFhMevFileHandler::modeCreate | CFhMevFileHandler::modeWrite);
  if (part.file == nullptr) {
    part.path.clear();
    return;
  }
  std::string failure;
  try {
    std::string chunk;
    chunk.reserve(kWriteChunkSz);
    for (const std::string& line : lines) {
      chunk += line;
      if (chunk.size() >= kWriteChunkSz) {
        part.file->Write(chunk.data(), static_cast<uint32_t>(chunk.size()));
        chunk.clear();
      }
    }
    if (!chunk.empty()) part.file->Write(chunk.data(), static_cast<uint32_t>(chunk.size()));
    CFhMevFileHandler::ReleaseFile(part.file, 0);
    part.file = nullptr;
    errno = 0;
    // The whole report replaces the file in one step; a report cut short never stands there.
    if (std::rename(part.path.c_str(), path.c_str()) == 0) {
      part.path.clear();
      return;
    }
    failure = std::generic_category().message(errno);
  } catch (CFhMevFileException* e) {
    std::unique_ptr<CFhMevFileException> owned(e);
    failure = CFhMevFileHandler::GetFileExceptionCause(e);
  }
  kovMessageBox(kovFormat("Error writing to file %s.\nReason: %s", path.c_str(), failure.c_str()));
}
