#include "korinimage/object.h"

namespace {

constexpr CRuntimeClass kObjectClass = {"CObject"};

}  // namespace

const CRuntimeClass* CObject::GetRuntimeClass() const { return &kObjectClass; }

CObject::~CObject() = default;

void CObject::Serialize(CArchive& /*archive*/) {}
