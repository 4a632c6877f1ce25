#include "StoreReader.h"

#include "results/Connection.h"
#include "results/ServerReader.h"
#include "results/StoreError.h"

namespace results {

std::unique_ptr<StoreReader> openToRead(const std::string& store,
                                        std::chrono::milliseconds patience) {
  if (ServerAddress::isMeant(store)) {
    try {
      return std::make_unique<ServerReader>(ServerAddress(store), patience);
    } catch (const NoAddress& reason) {
      // Without the address: see the reason.
      throw StoreError("of all stations", std::string(reason.what()) + ". " + reason.advice());
    }
  }
  return std::make_unique<Connection>(store, Connection::Access::Read, patience, migrations());
}

}  // namespace results
