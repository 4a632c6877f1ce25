#include "RowStream.h"

namespace results {

void RowSource::declare(const std::string& text, const Conditions& conditions) {
  auto preparing = (session_.prepare << "DECLARE report_rows NO SCROLL CURSOR FOR " << text);
  conditions.bind(preparing);
  soci::statement(preparing).execute(true);
}

RowSource::~RowSource() {
  if (!isStreamed_) return;
  try {
    statement_.reset();
    session_ << "CLOSE report_rows";
  } catch (const soci::soci_error&) {
    // The transaction has failed, and the rows with it: whoever read them was told.
  }
}

}  // namespace results
