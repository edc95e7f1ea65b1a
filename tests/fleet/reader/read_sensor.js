// Reads what the servers keep of a sensor, from the beginning, with packages that this project did
// not write. Prints one line of JSON a frame, and one with what was found at the end.
//   node read_sensor.js SERVERS SENSOR
// Exits with 1 if anything is missing that no gap names, or damaged.
"use strict";

const zlib = require("node:zlib");
const { AckPolicy, DeliverPolicy, connect } = require("nats");

const VERSION = 1;
const STRIP_HEAD = 32; // bytes, of an image's tail as well
const NO_LINE = 0xffff;
const STEPS_OF_LONG_ROWS = 65536;
const STEPS_OF_SHORT_ROWS = 32;

const decoder = new TextDecoder();

// The headers of a message. Numbers of 64 bits stay exact up to 2^53, which ids and sequences do
// not reach; stamps do, and stay texts.
function headersOf(message) {
  const text = (name) => message.headers?.get(`Tessaline-${name}`) ?? "";
  const number = (name) => (text(name) === "" ? undefined : Number(text(name)));
  const pair = (name, between) =>
    text(name) === "" ? undefined : text(name).split(between).map(Number);
  const sequence = number("Sequence");
  const [part, parts] = pair("Part", "/") ?? [1, 1];
  return {
    kind: message.subject.split(".")[2],
    version: number("Version"),
    run: text("Run"),
    sequence,
    first: number("First-Sequence") ?? sequence,
    acknowledged: number("Acknowledged") ?? 0,
    part,
    parts,
    stamp: text("Stamp"),
    count: number("Count"),
    pointBytes: number("Point-Bytes"),
    frames: pair("Frames", "-"),
    size: pair("Size", "x"),
    rows: pair("Rows", "-"),
    crc: text("Crc32"),
  };
}

const checkSum = (bytes) => zlib.crc32(bytes).toString(16).padStart(8, "0");

function pointAt(data, at, pointBytes, column) {
  if (pointBytes === 8) {
    const row = data.readUInt32LE(at + 4) / STEPS_OF_LONG_ROWS;
    return { column: data.readUInt16LE(at), peak: data[at + 2], width: data[at + 3], row };
  }
  if (pointBytes === 4) {
    const row = data.readUInt16LE(at + 2) / STEPS_OF_SHORT_ROWS;
    return { column: data.readUInt16LE(at), row };
  }
  const row = data.readUInt16LE(at);
  return row === NO_LINE ? undefined : { column, row: row / STEPS_OF_SHORT_ROWS };
}

function* stripsIn(data, pointBytes) {
  let at = 0;
  while (at < data.length) {
    const start = at;
    const count = Number(data.readBigUInt64LE(at + 24));
    at += STRIP_HEAD;
    const points = [];
    for (let column = 0; column < count; ++column, at += pointBytes) {
      const point = pointAt(data, at, pointBytes, column);
      if (point !== undefined) points.push(point);
    }
    yield {
      id: Number(data.readBigUInt64LE(start)),
      time_stamp: data.readBigUInt64LE(start + 8).toString(),
      encoder_stamp: data.readBigUInt64LE(start + 16).toString(),
      points: points.length,
      mean_row: points.reduce((sum, { row }) => sum + row, 0) / (points.length || 1),
      crc32: checkSum(data.subarray(start, at)),
    };
  }
}

function imageIn(data, [width, height]) {
  const tail = width * height;
  return {
    id: Number(data.readBigUInt64LE(tail)),
    time_stamp: data.readBigUInt64LE(tail + 8).toString(),
    encoder_stamp: data.readBigUInt64LE(tail + 16).toString(),
    width,
    height,
    crc32: checkSum(data),
  };
}

// One life of the sensor's publisher. The publisher removes what all subscribers have stored, so the
// first messages may be gone; what follows them has no holes.
class Run {
  constructor(id) {
    this.id = id;
    this.packets = new Map();
    this.acknowledged = 0;
    this.duplicates = 0;
  }

  add(packet) {
    this.acknowledged = Math.max(this.acknowledged, packet.acknowledged);
    if (this.packets.has(packet.sequence)) ++this.duplicates;
    else this.packets.set(packet.sequence, packet);
  }

  inOrder() {
    return [...this.packets.values()].sort((a, b) => a.sequence - b.sequence);
  }

  // Sequences that the publisher was told are stored, and that nobody has.
  missing() {
    const holes = [];
    let next;
    for (const { first, sequence } of this.inOrder()) {
      for (let hole = next ?? first; hole < first; ++hole) {
        if (hole <= this.acknowledged) holes.push(hole);
      }
      next = sequence + 1;
    }
    return holes;
  }

  // Buffers and images, their parts joined. One whose first parts are gone is left out.
  *joined() {
    let parts = [];
    for (const packet of this.inOrder()) {
      if (packet.part === 1) parts = [];
      if (packet.part !== parts.length + 1) continue;
      parts.push(packet);
      if (packet.part < packet.parts) continue;
      yield { ...parts[0], data: Buffer.concat(parts.map(({ data }) => data)) };
      parts = [];
    }
  }

  *frames() {
    for (const whole of this.joined()) {
      const about = { kind: whole.kind, run: this.id, sequence: whole.sequence, stamp: whole.stamp };
      if (whole.kind === "strips") {
        for (const strip of stripsIn(whole.data, whole.pointBytes)) yield { ...about, ...strip };
      } else if (whole.kind === "images") {
        yield { ...about, ...imageIn(whole.data, whole.size) };
      }
    }
  }

  gaps() {
    return this.inOrder()
      .filter(({ kind }) => kind === "gap")
      .map(({ data }) => JSON.parse(decoder.decode(data)));
  }
}

// All messages that are there now. The consumer ends with this program and acknowledges nothing, so
// the servers keep them for others.
async function readAll(connection, stream, use) {
  const manager = await connection.jetstreamManager();
  const { name } = await manager.consumers.add(stream, {
    ack_policy: AckPolicy.Explicit,
    deliver_policy: DeliverPolicy.All,
    inactive_threshold: 60e9,
  });
  const consumer = await connection.jetstream().consumers.get(stream, name);
  let { num_pending: left } = await consumer.info();
  while (left > 0) {
    const messages = await consumer.fetch({ max_messages: Math.min(left, 100), expires: 5000 });
    let came = 0;
    for await (const message of messages) {
      use(message);
      ++came;
    }
    if (came === 0) throw new Error(`${left} messages do not come`);
    left -= came;
  }
  await manager.consumers.delete(stream, name);
}

async function main([servers, sensor]) {
  const connection = await connect({ servers: servers.split(",") });
  const runs = new Map();
  let damaged = 0;
  await readAll(connection, `tessaline:${sensor.replaceAll(".", ":")}`, (message) => {
    const packet = headersOf(message);
    if (packet.version !== VERSION) throw new Error(`version ${packet.version} of messages`);
    packet.data = Buffer.from(message.data);
    if (packet.crc !== checkSum(packet.data)) ++damaged;
    if (!runs.has(packet.run)) runs.set(packet.run, new Run(packet.run));
    runs.get(packet.run).add(packet);
  });
  await connection.close();

  const found = { sensor, damaged, runs: [] };
  for (const run of runs.values()) {
    const counts = { strips: 0, images: 0 };
    for (const frame of run.frames()) {
      ++counts[frame.kind];
      console.log(JSON.stringify(frame));
    }
    found.runs.push({
      run: run.id,
      packets: run.packets.size,
      duplicates: run.duplicates,
      missing: run.missing(),
      gaps: run.gaps(),
      ...counts,
    });
  }
  console.log(JSON.stringify(found));
  return damaged === 0 && found.runs.every(({ missing }) => missing.length === 0);
}

main(process.argv.slice(2))
  .then((whole) => process.exit(whole ? 0 : 1))
  .catch((error) => {
    console.error(error.message);
    process.exit(2);
  });
