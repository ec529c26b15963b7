// @ts-check
// Reads a multipart/x-mixed-replace body part by part.

const lineEnd = 10;
const decoder = new TextDecoder();

class ByteQueue {
  /** @param {ReadableStreamDefaultReader<Uint8Array>} reader */
  constructor(reader) {
    this.reader = reader;
    /** @type {Uint8Array} */
    this.bytes = new Uint8Array(0);
  }

  /** More bytes from the network; false at the end. */
  async more() {
    const { value, done } = await this.reader.read();
    if (done) return false;
    if (this.bytes.length === 0) {
      this.bytes = value;
    } else {
      const joined = new Uint8Array(this.bytes.length + value.length);
      joined.set(this.bytes);
      joined.set(value, this.bytes.length);
      this.bytes = joined;
    }
    return true;
  }

  /** A line without its end; null at the end of the stream. */
  async line() {
    let end;
    while ((end = this.bytes.indexOf(lineEnd)) < 0) if (!(await this.more())) return null;
    const text = decoder.decode(this.bytes.subarray(0, end));
    this.bytes = this.bytes.subarray(end + 1);
    return text.trimEnd();
  }

  /**
   * That many bytes; null at the end of the stream. Collected once, not joined piece by piece:
   * a picture comes in many pieces.
   * @param {number} count
   */
  async take(count) {
    const whole = new Uint8Array(count);
    let filled = 0;
    for (;;) {
      const part = this.bytes.subarray(0, count - filled);
      whole.set(part, filled);
      filled += part.length;
      this.bytes = this.bytes.subarray(part.length);
      if (filled === count) return whole;
      if (!(await this.more())) return null;
    }
  }
}

/**
 * Header names are in small letters.
 * @param {ReadableStream<Uint8Array>} body
 * @returns {AsyncGenerator<{headers: Map<string, string>, bytes: Uint8Array<ArrayBuffer>}>}
 */
export async function* readParts(body) {
  const queue = new ByteQueue(body.getReader());
  for (;;) {
    const headers = new Map();
    for (;;) {
      const line = await queue.line();
      if (line === null) return;
      const colon = line.indexOf(':');
      if (colon > 0) headers.set(line.slice(0, colon).toLowerCase(), line.slice(colon + 1).trim());
      else if (line === '' && headers.size > 0) break;
    }
    const length = Number(headers.get('content-length'));
    if (!Number.isInteger(length) || length < 0) throw new Error('a picture without its length');
    const bytes = await queue.take(length);
    if (bytes === null) return;
    yield { headers, bytes };
  }
}
