// Run-time class records: a class's name and parent, for telling kinds apart.
//
// A class that takes part declares a public static record named `class` + its own name
// (`classCKovNumFieldLayout`) and answers GetRuntimeClass() with it. IsKindOf(record) is true
// for the class itself and for everything derived from it. Records are constant-initialised,
// so they can be used from any static initialiser. Never throws.
#ifndef KOV_PLATFORM_RUNTIMECLASS_H
#define KOV_PLATFORM_RUNTIMECLASS_H

struct KovRuntimeClass {
  const char* m_className;
  const KovRuntimeClass* m_baseClass;  // null for a root class

  // True when this record is `base` or derives from it.
  bool IsDerivedFrom(const KovRuntimeClass* base) const {
    for (const KovRuntimeClass* rc = this; rc != nullptr; rc = rc->m_baseClass) {
      if (rc == base) return true;
    }
    return false;
  }
};

// In the class body of a hierarchy's root: the record, the virtual query and IsKindOf.
#define KOV_DECLARE_RUNTIME_ROOT(ClassName)                          \
 public:                                                             \
  static const KovRuntimeClass class##ClassName;                     \
  virtual const KovRuntimeClass* GetRuntimeClass() const;            \
  bool IsKindOf(const KovRuntimeClass* rc) const {                   \
    return rc != nullptr && GetRuntimeClass()->IsDerivedFrom(rc);    \
  }

// In the class body of a derived class.
#define KOV_DECLARE_RUNTIME_CLASS(ClassName)                        \
 public:                                                            \
  static const KovRuntimeClass class##ClassName;                    \
  const KovRuntimeClass* GetRuntimeClass() const override;

// In one .cpp: the record of a root (Parent is ignored) or of a derived class.
#define KOV_IMPLEMENT_RUNTIME_ROOT(ClassName)                                          \
  const KovRuntimeClass ClassName::class##ClassName = {#ClassName, nullptr};           \
  const KovRuntimeClass* ClassName::GetRuntimeClass() const { return &class##ClassName; }

#define KOV_IMPLEMENT_RUNTIME_CLASS(ClassName, ParentName)                              \
  const KovRuntimeClass ClassName::class##ClassName = {#ClassName,                      \
                                                       &ParentName::class##ParentName}; \
  const KovRuntimeClass* ClassName::GetRuntimeClass() const { return &class##ClassName; }

// The record of a class, by name: KOV_RUNTIME_CLASS(CKovNumFieldLayout).
#define KOV_RUNTIME_CLASS(ClassName) (&ClassName::class##ClassName)

#endif  // KOV_PLATFORM_RUNTIMECLASS_H
