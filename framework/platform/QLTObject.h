#pragma once

#include <map>
#include <memory>
#include <string>

#include <QLTExport.h>

/// The root of everything that can sit in a suite's resources: instruments, loggers, utility
/// objects.
///
/// Objects have identity and are shared by `std::shared_ptr`; they are not copied.
class QLT_EXPORT QLTObject {
 public:
  QLTObject() = default;
  QLTObject(const QLTObject&) = delete;
  QLTObject& operator=(const QLTObject&) = delete;
  virtual ~QLTObject();

  /// The name of the object's class, as written in its source: "QLTDiags", "acme::Meter".
  std::string className() const;
};

/// A suite's resources: resource name to instrument or utility object.
using QLTResources = std::map<std::string, std::shared_ptr<QLTObject>, std::less<>>;
