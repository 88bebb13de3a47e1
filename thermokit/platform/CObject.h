#pragma once
// Run-time class information for the library's framework objects: every class
// that carries it names itself and points at its base class, so a caller
// holding a base pointer can ask what it really holds (IsKindOf). There is no
// serialization schema and no dynamic creation.
#include <cstring>

namespace thermokit {

struct CRuntimeClass {
    const char* m_lpszClassName;
    const CRuntimeClass* m_pBaseClass;  // null for CObject itself

    // True when this class is base or one of its descendants.
    bool IsDerivedFrom(const CRuntimeClass* base) const {
        for (const CRuntimeClass* c = this; c; c = c->m_pBaseClass) {
            if (c == base) return true;
        }
        return false;
    }
};

class CObject {
public:
    virtual ~CObject() = default;

    static const CRuntimeClass* GetThisClass() {
        static const CRuntimeClass info{"CObject", nullptr};
        return &info;
    }
    virtual const CRuntimeClass* GetRuntimeClass() const { return GetThisClass(); }

    // 1 when the object's class is cls or derives from it; 0 otherwise (and for a null cls).
    int IsKindOf(const CRuntimeClass* cls) const {
        return cls && GetRuntimeClass()->IsDerivedFrom(cls) ? 1 : 0;
    }
};

}  // namespace thermokit

// Declares GetThisClass/GetRuntimeClass in a class body.
#define THERMOKIT_DECLARE_DYNAMIC(ClassName)                                  \
public:                                                                       \
    static const ::thermokit::CRuntimeClass* GetThisClass();                  \
    const ::thermokit::CRuntimeClass* GetRuntimeClass() const override;

// Defines them in the class's source file, naming the base class.
#define THERMOKIT_IMPLEMENT_DYNAMIC(ClassName, BaseName)                      \
    const ::thermokit::CRuntimeClass* ClassName::GetThisClass() {             \
        static const ::thermokit::CRuntimeClass info{#ClassName, BaseName::GetThisClass()}; \
        return &info;                                                         \
    }                                                                         \
    const ::thermokit::CRuntimeClass* ClassName::GetRuntimeClass() const { return GetThisClass(); }

#define RUNTIME_CLASS(ClassName) (ClassName::GetThisClass())
