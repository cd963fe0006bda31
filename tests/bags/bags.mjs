// Reads a bag of MCAP, or writes one, with libraries that share no code with ours.
//   node bags.mjs write OUT.mcap < messages   a JSON object a line: topic, kind, definition, time, message
//   node bags.mjs read IN.mcap                the same the other way, without the definitions
import { readFileSync, writeFileSync } from "node:fs";
import { createInterface } from "node:readline";
import rosmsg from "@foxglove/rosmsg";
import serialization from "@foxglove/rosmsg2-serialization";
import * as mcap from "@mcap/core";

const [mode, file] = process.argv.slice(2);
const layoutOf = (text) => rosmsg.parse(text, { ros2: true });
const plain = (key, value) => ArrayBuffer.isView(value) ? Array.from(value) : typeof value === "bigint" ? Number(value) : value;

if (mode === "write") {
  const buffer = new mcap.TempBuffer();
  const writer = new mcap.McapWriter({ writable: buffer, chunkSize: 3000 });
  await writer.start({ profile: "ros2", library: "" });
  for await (const line of createInterface({ input: process.stdin })) {
    const { topic, kind, definition, time, message } = JSON.parse(line);
    const schemaId = await writer.registerSchema({ name: kind, encoding: "ros2msg", data: new TextEncoder().encode(definition) });
    const channelId = await writer.registerChannel({ topic, schemaId, messageEncoding: "cdr", metadata: new Map() });
    const data = new serialization.MessageWriter(layoutOf(definition)).writeMessage(message);
    await writer.addMessage({ channelId, sequence: 0, logTime: BigInt(time), publishTime: 0n, data });
  }
  await writer.end();
  writeFileSync(file, buffer.get());
} else {
  const reader = new mcap.McapStreamReader();
  const schemas = new Map(), channels = new Map();
  reader.append(readFileSync(file));
  for (let record; (record = reader.nextRecord());) {
    if (record.type === "Schema") schemas.set(record.id, layoutOf(new TextDecoder().decode(record.data)));
    if (record.type === "Channel") channels.set(record.id, record);
    if (record.type !== "Message") continue;
    const { topic, schemaId } = channels.get(record.channelId);
    const message = new serialization.MessageReader(schemas.get(schemaId)).readMessage(record.data);
    console.log(JSON.stringify({ topic, time: String(record.logTime), message }, plain));
  }
}
