#include "QLTObject.h"

#include <typeinfo>

#include "common/TypeName.h"

QLTObject::~QLTObject() = default;

std::string QLTObject::className() const {
  return quillon::internal::typeName(typeid(*this).name());
}
