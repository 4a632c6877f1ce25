#include "QLTClass.h"

#include "BundleLoading.h"

const QLTClass* QLTClass::registerClass(std::string name, const Operations& operations) {
  QLTBundle* bundle = quillon::internal::bundleBeingOpened();
  if (bundle == nullptr) bundle = &QLTBundle::main();
  // Not make_unique: the constructor is private.
  return bundle->add(std::unique_ptr<QLTClass>(new QLTClass(std::move(name), operations, bundle)));
}
