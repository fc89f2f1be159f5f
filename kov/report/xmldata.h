// CKovXmlData: the XML report of an unpack, built line by line and written at the end.
//
// The report is a log of what an unpack read: a prolog with its document type, then
// <CodeplugData> with one <Block> per block instance met, each with its <BlockName>
// ("name_instance") and the fields, lists (<List>, <LED>), unions (<Union>) and listlets
// (<Listlet>) in the order they were read. A field:
//     <Field>
//         <Name> Volume </Name>
//         <ByteOffset> 0x0 </ByteOffset>     the layout's byte offset within its entry
//         <BitOffset> 0x7 </BitOffset>       the layout's MSB start
//         <Length> 0x8 </Length>             the bits the field took in the image
//         <Value> 0x5 </Value>               number 0x%x, name 0x%08x, character, string
//     </Field>
// Indentation is one tab per open tag and is kept by the calls alone: an end tag closes whatever
// the caller says. Every '&' becomes "&amp;"; '<', '>' and quotes in names and values are left
// as they are. Characters of values (8-bit string characters, 16-bit character values) that are
// not printable ASCII are written so that the file stays readable by any XML reader:
//   tab, LF, CR, 0x7F to 0xD7FF, 0xE000 to 0xFFFD   a character reference: 0xE9 -> &#xE9;
//   0 to 0x1F otherwise, 0xD800 to 0xDFFF, 0xFFFE, 0xFFFF, which XML 1.0 can't hold in any form
//                                                    an empty element: 0 -> <Char code="0x0"/>
// so "A", 0x00, "B" reads <Value> A<Char code="0x0"/>B </Value>. A string value ends at its first
// NUL. A field or block name in UTF-8 goes through as it is; one that is not is written byte by
// byte like a string value.
//
// CreateXmlFile empties the report into a file that holds all of it or is not touched: the lines
// go to "<path>.part" beside it, which is renamed to path once every byte is written. A part
// file that can't be opened (no such directory, no permission) is passed over in silence, as is
// an empty path. A write, close or rename that fails removes the part file, leaves whatever stood
// at path as it was and shows "Error writing to file %s.\nReason: %s" (path, the system's words)
// in a message box; the unpack goes on. Nothing here throws but for exhausted memory, which
// leaves no part file behind either.
#ifndef KOV_REPORT_XMLDATA_H
#define KOV_REPORT_XMLDATA_H

#include <cstdint>
#include <string>
#include <vector>

class CKovField;
class CKovFieldLayout;

// Appended to the report's path for the file it is written to before it is renamed into place.
constexpr char kovXmlPartSuffix[] = ".part";

class CKovXmlData {
 public:
  // A report holding the prolog and the <CodeplugData> start tag.
  CKovXmlData();
  CKovXmlData(const CKovXmlData&) = delete;
  CKovXmlData& operator=(const CKovXmlData&) = delete;

  // tag includes its angle brackets: "<List>". A start tag indents what follows by one tab.
  void AddStartTagLine(const std::string& tag);
  // Ends one level of indentation, then writes tag.
  void AddEndTagLine(const std::string& tag);
  // <Block> and <BlockName> name_instance </BlockName>.
  void StartBlkInstance(const std::string& blkName, uint16_t instance);
  // The <Field> element of a number, character, KOV name or string value.
  void AddPrimitiveField(const CKovField* field, const CKovFieldLayout* layout);
  // Writes the whole report to path, or nothing, and empties it. See the top of this file.
  void CreateXmlFile(const std::string& path);

  // The lines so far, each ending in a newline.
  const std::vector<std::string>& GetLines() const { return xmlLines; }

 private:
  // Appends line with every '&' escaped.
  void AddString(std::string line);
  // Appends line as it is.
  void AddLine(std::string line);
  void ShortenTabStr();

  std::vector<std::string> xmlLines;
  std::string tabStr;
};

#endif  // KOV_REPORT_XMLDATA_H
