// Numbers as people read them.

const kMinus = "\u2212";

/** A number that JSON can hold, or null. */
export const defined = (value) => value !== null && value !== undefined && Number.isFinite(value);

/** Fixed decimals, with a true minus sign; "\u2013" where there is no value. */
export function fixed(value, decimals) {
  if (!defined(value)) return "\u2013";
  const text = Math.abs(value).toFixed(decimals);
  return value < 0 && Number(text) !== 0 ? kMinus + text : text;
}

/** Decimals that show two digits of a standard deviation. */
export function decimals_for(sd) {
  if (!defined(sd) || sd <= 0) return 3;
  return Math.min(12, Math.max(0, 1 - Math.floor(Math.log10(sd))));
}

/** Three significant digits, without an exponent where that is readable. */
export function short(value, digits = 3) {
  if (!defined(value)) return "\u2013";
  const size = Math.abs(value);
  if (size !== 0 && (size < 1e-4 || size >= 1e7)) {
    const [mantissa, exponent] = value.toExponential(digits - 1).split("e");
    return `${mantissa.replace("-", kMinus)} \u00b7 10${superscript(Number(exponent))}`;
  }
  const decimals = size === 0 ? 0 : Math.max(0, digits - 1 - Math.floor(Math.log10(size)));
  return fixed(value, decimals);
}

function superscript(n) {
  const digits = "\u2070\u00b9\u00b2\u00b3\u2074\u2075\u2076\u2077\u2078\u2079";
  const text = [...String(Math.abs(n))].map((d) => digits[Number(d)]).join("");
  return n < 0 ? "\u207b" + text : text;
}

/** A unit with its power raised: "1/mm2" as 1/mm\u00b2. */
export const unit_text = (unit) => unit.replace(/\d+$/, (power) => superscript(Number(power)));

/** Thousands apart. */
export const count = (n) =>
  defined(n) ? String(n).replace(/\B(?=(\d{3})+(?!\d))/g, "\u202f") : "\u2013";

/** Length unit in which a typical size reads well: factor from metres and name. */
export function length_unit(size) {
  if (!(size > 0)) return { factor: 1, name: "m" };
  if (size < 1e-4) return { factor: 1e6, name: "\u00b5m" };
  if (size < 0.1) return { factor: 1e3, name: "mm" };
  return { factor: 1, name: "m" };
}

/** 1, 2 or 5 times a power of ten, at most `value`. */
export function round_down(value) {
  if (!(value > 0)) return 1;
  const power = 10 ** Math.floor(Math.log10(value));
  const lead = value / power;
  return (lead >= 5 ? 5 : lead >= 2 ? 2 : 1) * power;
}

/** The value below which a share of the numbers lies. */
export function quantile(values, share) {
  const sorted = Float64Array.from(values).filter(Number.isFinite).sort();
  if (sorted.length === 0) return NaN;
  return sorted[Math.min(sorted.length - 1, Math.floor(share * sorted.length))];
}
