// Reads a recording with packages that this project did not write, and compares every message with
// what its writer says it wrote. The messages' definitions are those in the recording, and, of
// standard messages, also the standard's.
//   node read_recording.js RUN.db3 EXPECTED.json [EVERY]    EVERY: each topic must have a message
//   node read_recording.js FOLDER EXPECTED.json             the file that metadata.yaml names
"use strict";

const assert = require("node:assert");
const fs = require("node:fs");
const path = require("node:path");
// The package expects a browser's class of that name, which node has from version 20 on.
globalThis.File ??= require("node:buffer").File;
const { Rosbag2, SqliteSqljs, ROS2_TO_DEFINITIONS } = require("@foxglove/rosbag2-web");
const { parse } = require("@foxglove/rosmsg");
const { ros2jazzy } = require("@foxglove/rosmsg-msgs-common");
const { MessageReader } = require("@foxglove/rosmsg2-serialization");

// The package would fetch it like a browser.
const wasmBinary = fs.readFileSync(require.resolve("@foxglove/sql.js/dist/sql-wasm.wasm"));

// The definitions in the recording, by type. One that leaves the types within it to the reader, as
// those of standard messages may, is completed from the package that has them.
async function readDefinitions(bytes) {
  const sql = await SqliteSqljs.Initialize({ wasmBinary });
  const database = new sql.Database({ data: bytes });
  const [{ values }] = database.exec(
    "SELECT topic_type, encoding, encoded_message_definition FROM message_definitions",
  );
  database.close();
  const definitions = new Map();
  for (const [type, encoding, text] of values) {
    assert.strictEqual(encoding, "ros2msg", `encoding of ${type}`);
    const own = parse(text, { ros2: true });
    const names = new Set(own.map(({ name }) => name));
    const others = Object.values(ros2jazzy).filter(({ name }) => !names.has(name));
    definitions.set(type, [...own, ...others]);
  }
  return definitions;
}

// A decoded value in the form of the file of what is expected.
function plain(value) {
  if (typeof value === "bigint") return value.toString();
  if (value instanceof Uint8Array) return Buffer.from(value).toString("hex");
  if (Array.isArray(value)) return value.map(plain);
  if (ArrayBuffer.isView(value)) return Array.from(value, plain);
  if (value === null || typeof value !== "object") return value;
  return Object.fromEntries(Object.entries(value).map(([key, of]) => [key, plain(of)]));
}

function decode(readers, type, definitions, data) {
  if (!readers.has(type)) readers.set(type, new MessageReader(definitions));
  const reader = readers.get(type);
  const message = plain(reader.readMessage(data));
  assert.ok(!reader.lastReadHadTrailingBytes(), `${type}: bytes behind what is defined`);
  return message;
}

// The file of a recording or of a bag's folder.
function fileOf(place) {
  if (!fs.statSync(place).isDirectory()) return place;
  const metadata = fs.readFileSync(path.join(place, "metadata.yaml"), "utf8");
  const [, name] = metadata.match(/^ {2}relative_file_paths:\n {4}- "(.*)"\n {2}\S/m);
  return path.join(place, name);
}

async function main([recording, expectedFile, every]) {
  const bytes = new Uint8Array(fs.readFileSync(fileOf(recording)));
  const expected = JSON.parse(fs.readFileSync(expectedFile, "utf8"));
  const definitions = await readDefinitions(bytes);
  const bag = new Rosbag2([new SqliteSqljs(bytes)]);
  await bag.open();

  const byDefinitionsInside = new Map();
  const byStandardOnes = new Map();
  const counts = new Map();
  let next = 0;
  for await (const { topic, timestamp, data } of bag.readMessages({ rawMessages: true })) {
    const where = `message ${next} on ${topic.name}`;
    assert.strictEqual(topic.serializationFormat, "cdr");
    assert.ok(definitions.has(topic.type), `${where}: no definition of ${topic.type}`);
    const stamp = BigInt(timestamp.sec) * 1000000000n + BigInt(timestamp.nsec);
    const found = {
      topic: topic.name,
      type: topic.type,
      timestamp: stamp.toString(),
      message: decode(byDefinitionsInside, topic.type, definitions.get(topic.type), data),
    };
    assert.deepStrictEqual(found, expected[next], where);
    const standard = ROS2_TO_DEFINITIONS.get(topic.type);
    if (standard !== undefined) {
      const all = [standard, ...Object.values(ros2jazzy)];
      const message = decode(byStandardOnes, topic.type, all, data);
      assert.deepStrictEqual(message, expected[next].message, `${where}, by the standard`);
    }
    counts.set(topic.name, (counts.get(topic.name) ?? 0) + 1);
    ++next;
  }
  assert.strictEqual(next, expected.length, "number of messages");
  for (const { name } of await bag.readTopics()) {
    assert.ok(every === undefined || counts.has(name), `nothing on ${name}: sample.cpp has to`);
    console.log(`${name}: ${counts.get(name) ?? 0} messages`);
  }
  assert.ok(byStandardOnes.size > 0, "some type is a standard one");
  await bag.close();
}

main(process.argv.slice(2)).catch((error) => {
  console.error(error.message);
  process.exit(1);
});
