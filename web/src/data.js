// The report's data: JSON in the page. A column is an array, or packed numbers as base64:
//   {"f32": "..."}   little-endian 32-bit floats
//   {"i32": "..."}   32-bit integers
//   {"i16": "...", "scale": s}   16-bit integers, value = s * integer; -32768 is "not defined"

function bytes(base64) {
  const text = atob(base64);
  const result = new Uint8Array(text.length);
  for (let i = 0; i < text.length; ++i) result[i] = text.charCodeAt(i);
  return result.buffer;
}

/** A column as an array of numbers or texts. */
export function column(encoded) {
  if (encoded === undefined || encoded === null) return [];
  if (Array.isArray(encoded)) return encoded;
  if (encoded.f32 !== undefined) return new Float32Array(bytes(encoded.f32));
  if (encoded.i32 !== undefined) return new Int32Array(bytes(encoded.i32));
  if (encoded.i16 !== undefined) {
    return Float32Array.from(new Int16Array(bytes(encoded.i16)), (n) =>
      n === -32768 ? NaN : n * encoded.scale,
    );
  }
  return [];
}

/** All columns of a table, decoded. {"of": "points"} is the column of that name in another table of
 * `others`. */
export function table(encoded, others = {}) {
  const columns = {};
  for (const [name, values] of Object.entries(encoded ?? {})) {
    columns[name] = column(values?.of ? others[values.of][name] : values);
  }
  return columns;
}

/** The number of rows of a decoded table. */
export function rows(columns) {
  const first = Object.values(columns)[0];
  return first === undefined ? 0 : first.length;
}

/** The report's document, from the page. */
export function read_report() {
  return JSON.parse(document.getElementById("report-data").textContent);
}
