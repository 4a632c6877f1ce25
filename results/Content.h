#pragma once

#include <string>

#include "results/Rows.h"

namespace results {

// Names that follow from content, so that the same thing has the same name in every store. All of
// them are SHA-256 sums over the canonical form that docs/results.md describes.

/// What identifies a row: 32 hexadecimal digits, from all its columns but `id`.
std::string idOf(const Plan& plan);
std::string idOf(const Spec& spec);
std::string idOf(const Instrument& instrument);
/// What identifies a station: 32 hexadecimal digits, from its machine and its name.
std::string idOf(const Station& station);

/// The sum of a run's content, 64 hexadecimal digits: the run but for `sha256`, its steps,
/// measurements, attributes and instruments. The lists must be in the order of their primary keys.
std::string sha256Of(const RunContent& content);

/// The sum of an event, 64 hexadecimal digits: all its columns but `sequence`, which every store
/// gives anew.
std::string sha256Of(const Event& event);

/// Makes a row what every engine can hold: bytes of texts that are no UTF-8, and zero bytes, become
/// escapes (`\xe9`, `\x00`); the value of a measurement that is not finite becomes absent, and its
/// text `nan`, `inf` or `-inf`; a limit that is not finite becomes absent.
void makeStorable(Plan& row);
void makeStorable(Spec& row);
void makeStorable(Run& row);
void makeStorable(Step& row);
void makeStorable(Measurement& row);
void makeStorable(Attribute& row);
void makeStorable(Instrument& row);
void makeStorable(RunInstrument& row);
void makeStorable(Event& row);
void makeStorable(Station& row);
/// The text alone.
void makeStorable(std::string& text);

}  // namespace results
