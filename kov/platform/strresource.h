// String resources: texts looked up by number, the names of fields and blocks.
//
// A field id is also the id of the string that names the field. kovLoadString searches, in this
// order, the texts the application registered with kovRegisterString, the application's resolver
// (if one is installed), and the library's own table, which holds 28520 to 28526:
//   28520 "KOV List Structure ID"     28524 "LED size"
//   28521 "KOV List Structure type"   28525 "Listlet link"
//   28522 "LEQ field"                 28526 "Max listlet LEQ"
//   28523 "Max LEQ field"
// An unknown id gives the empty string. Every function may be called from any thread: look-ups
// share a lock, and each thread keeps what it looked up until the next registration or clear;
// registration takes the lock alone. The resolver is called without the lock, from whichever
// thread looks a text up.
#ifndef KOV_PLATFORM_STRRESOURCE_H
#define KOV_PLATFORM_STRRESOURCE_H

#include <cstdint>
#include <string>

// Answers the text of id into text and returns true, or returns false when it has none.
using KovStringResolver = bool (*)(uint32_t id, std::string& text);

// The text of id, or "" when no source has one. Never throws but for exhausted memory.
std::string kovLoadString(uint32_t id);

// The same text as kovLoadString, without a copy: every text handed out is kept once, for the
// life of the process, so the fields named by it can point at it and keep it when their id is
// registered again or cleared. Texts that differ are kept side by side; the same text is kept
// once. Never throws but for exhausted memory.
const std::string& kovLoadInternedString(uint32_t id);

// Registers (or replaces) the application's text for id.
void kovRegisterString(uint32_t id, const std::string& text);

// Removes every text registered with kovRegisterString; the library's table stays.
void kovClearRegisteredStrings();

// Installs the application's resolver (null: none) and returns the one it replaces.
KovStringResolver kovSetStringResolver(KovStringResolver resolver);

#endif  // KOV_PLATFORM_STRRESOURCE_H
