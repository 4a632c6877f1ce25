#include "Calibration.h"

namespace station {

std::optional<std::chrono::sys_days> calibrationDay(const std::string& text) {
  const std::string form = "0000-00-00";
  if (text.size() != form.size()) return std::nullopt;
  for (std::size_t i = 0; i < form.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (form[i] == '0' ? !isDigit : text[i] != form[i]) return std::nullopt;
  }
  const std::chrono::year_month_day day(
      std::chrono::year(std::stoi(text.substr(0, 4))),
      std::chrono::month(static_cast<unsigned>(std::stoi(text.substr(5, 2)))),
      std::chrono::day(static_cast<unsigned>(std::stoi(text.substr(8, 2)))));
  if (!day.ok()) return std::nullopt;
  return std::chrono::sys_days(day);
}

Calibration calibrationOf(const QLTDictionary& entry, std::chrono::sys_days today) {
  constexpr std::chrono::days kSoon{14};
  using State = Calibration::State;
  Calibration calibration;
  const QLTValue* const due = entry.find(kCalibrationDue);
  if (due != nullptr) calibration.due = due->text();
  const auto day = calibrationDay(calibration.due);
  const QLTValue* const sim = entry.find("sim");
  if (due != nullptr && !day) {
    calibration.state = State::Malformed;
  } else if (sim != nullptr && sim->intValue() == 1) {
    calibration.state = State::Simulated;
  } else if (day) {
    calibration.state = today > *day           ? State::Overdue
                        : today + kSoon > *day ? State::DueSoon
                                               : State::Valid;
  }
  return calibration;
}

}  // namespace station
