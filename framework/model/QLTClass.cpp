#include "QLTClass.h"

#include "platform/BundleLoading.h"

const QLTClass* QLTClass::registerClass(std::string name, const Operations& operations) {
  QLTBundle* bundle = quillon::internal::bundleBeingOpened();
  if (bundle == nullptr) bundle = &QLTBundle::main();
  // Not make_shared: the constructor is private.
  return bundle->add(name, std::shared_ptr<const QLTClass>(new QLTClass(name, operations, bundle)));
}
