// What must be known of fragmented MP4 (ISO/IEC 14496-12 and 14496-15) to show it live: where its parts begin and end,
// their times, and which can be begun with.

const size_at = (bytes, at) => new DataView(bytes.buffer, bytes.byteOffset).getUint32(at);
const hex = (byte) => byte.toString(16).padStart(2, '0');

// Where the contents of the first box of this type begin.
function find(bytes, type) {
  const code = [...type].map((letter) => letter.charCodeAt(0));
  for (let at = bytes.indexOf(code[0]); at >= 0; at = bytes.indexOf(code[0], at + 1)) {
    if (code.every((byte, i) => bytes[at + i] === byte)) {
      return at + 4;
    }
  }
  throw new Error(`the stream has no ${type}`);
}

function join(pieces) {
  const all = new Uint8Array(pieces.reduce((sum, piece) => sum + piece.length, 0));
  let at = 0;
  for (const piece of pieces) {
    all.set(piece, at);
    at += piece.length;
  }
  return all;
}

function read_header(bytes) {
  const timescale = size_at(bytes, find(bytes, 'mdhd') + 12);
  const avc = find(bytes, 'avcC');
  return { codec: `avc1.${hex(bytes[avc + 1])}${hex(bytes[avc + 2])}${hex(bytes[avc + 3])}`, timescale };
}

function read_fragment(bytes, timescale) {
  const time = find(bytes, 'tfdt') + 4;
  const is_other = size_at(bytes, find(bytes, 'trun') + 20) & 0x00010000;
  const ticks = size_at(bytes, time) * 2 ** 32 + size_at(bytes, time + 4);
  return { time: ticks / timescale, is_key: !is_other };
}

// Cuts a stream that comes in any pieces into {bytes, codec} for headers and {bytes, time, is_key} for pictures.
export class Cutter {
  #pieces = [];
  #size = 0;
  #boxes = [];
  #timescale = 1;

  *cut(piece) {
    this.#pieces.push(piece);
    this.#size += piece.length;
    for (let box = this.#next_box(); box; box = this.#next_box()) {
      this.#boxes.push(box);
      const type = String.fromCharCode(...box.subarray(4, 8));
      if (type === 'moov') {
        const header = read_header(box);
        this.#timescale = header.timescale;
        yield { bytes: this.#take_boxes(), ...header };
      } else if (type === 'mdat') {
        const fragment = read_fragment(this.#boxes.at(-2), this.#timescale);
        yield { bytes: this.#take_boxes(), ...fragment };
      }
    }
  }

  #next_box() {
    if (this.#size < 8) {
      return null;
    }
    if (this.#pieces[0].length < 8) {
      this.#pieces = [join(this.#pieces)];
    }
    const size = size_at(this.#pieces[0], 0);
    if (size < 8) {
      throw new Error('the stream is damaged');
    }
    if (this.#size < size) {
      return null;
    }
    const all = this.#pieces.length > 1 ? join(this.#pieces) : this.#pieces[0];
    this.#size -= size;
    this.#pieces = this.#size > 0 ? [all.subarray(size)] : [];
    return all.subarray(0, size);
  }

  #take_boxes() {
    const bytes = join(this.#boxes);
    this.#boxes = [];
    return bytes;
  }
}

export { join };
