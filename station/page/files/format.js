// Times and numbers as people read them.

import { texts } from "./texts.js";

/// How long something took or takes, from seconds: "3.2 s", "1:05", "2:10:00".
export function duration(seconds) {
  if (!Number.isFinite(seconds)) return "";
  const whole = Math.max(0, seconds);
  if (whole < 59.95) return texts.seconds(whole.toFixed(1));
  const two = (value) => String(value).padStart(2, "0");
  const all = Math.round(whole);
  const minutes = Math.floor(all / 60) % 60;
  const hours = Math.floor(all / 3600);
  return hours > 0 ? `${hours}:${two(minutes)}:${two(all % 60)}` : `${minutes}:${two(all % 60)}`;
}

/// The same for a time that goes on, without the tenths that nobody can read.
export function roughDuration(seconds) {
  return seconds >= 10 && seconds < 59.5 ? texts.seconds(String(Math.round(seconds))) : duration(seconds);
}

/// The same for a time that runs out, in whole seconds.
export function wholeDuration(seconds) {
  return seconds <= 59 ? texts.seconds(String(Math.ceil(seconds))) : duration(seconds);
}

/// The time of day of microseconds since 1970, with the day where it is not today.
export function timeOfDay(microseconds) {
  if (!Number.isFinite(microseconds)) return "";
  const at = new Date(microseconds / 1000);
  const time = at.toLocaleTimeString("en-GB");
  if (at.toDateString() === new Date().toDateString()) return time;
  const two = (value) => String(value).padStart(2, "0");
  return `${at.getFullYear()}-${two(at.getMonth() + 1)}-${two(at.getDate())} ${time}`;
}

/// A number without the last digits, which only its binary form has: 1.872 for 1.8719999999999999.
export function shortNumber(value) {
  return typeof value === "number" ? String(Number(value.toPrecision(12))) : String(value);
}

/// What a record was compared with: "2.4 … 2.6", "at least 5", "OK"; empty when with nothing.
export function limits(record) {
  const has = (value) => value !== undefined && value !== null && value !== "";
  const low = has(record.low) ? shortNumber(record.low) : undefined;
  const high = has(record.high) ? shortNumber(record.high) : undefined;
  if (low !== undefined && high !== undefined) return `${low} … ${high}`;
  if (low !== undefined) return texts.atLeast(low);
  if (high !== undefined) return texts.atMost(high);
  return has(record.expected) ? texts.expects(record.expected) : "";
}

export function withUnit(value, unit) {
  if (value === undefined || value === null) return "";
  return unit ? `${value} ${unit}` : String(value);
}
