// CKovExpImpInfo, CKovExportInfo, CKovImportInfo: tags for the application's export and import
// code. They carry no data, and nothing in the library creates or reads them.
#ifndef KOV_FIELDS_EXPIMPINFO_H
#define KOV_FIELDS_EXPIMPINFO_H

class CKovExpImpInfo {
 public:
  virtual ~CKovExpImpInfo() = default;
  virtual int IsExportInfo() const { return 0; }
  virtual int IsImportInfo() const { return 0; }
};

class CKovExportInfo : public CKovExpImpInfo {
 public:
  int IsExportInfo() const override { return 1; }
};

class CKovImportInfo : public CKovExpImpInfo {
 public:
  int IsImportInfo() const override { return 1; }
  int ImportAllComponentData() const { return 1; }
};

#endif  // KOV_FIELDS_EXPIMPINFO_H
