// Reads and writes bags of MCAP with libraries that share no code with ours. In: the file to write, the file
// to read, and on standard input the messages to write, a JSON object a line. Out: those that were read.
import { readFileSync, writeFileSync } from "node:fs";
import rosmsg from "@foxglove/rosmsg";
import serialization from "@foxglove/rosmsg2-serialization";
import * as mcap from "@mcap/core";

const layoutOf = (text) => rosmsg.parse(text, { ros2: true });
const buffer = new mcap.TempBuffer();
const writer = new mcap.McapWriter({ writable: buffer, chunkSize: 3000 });
await writer.start({ profile: "ros2", library: "" });
for (const line of readFileSync(0, "utf8").trim().split("\n")) {
  const { topic, kind, definition, time, message } = JSON.parse(line);
  const schemaId = await writer.registerSchema({ name: kind, encoding: "ros2msg", data: new TextEncoder().encode(definition) });
  const channelId = await writer.registerChannel({ topic, schemaId, messageEncoding: "cdr", metadata: new Map() });
  const data = new serialization.MessageWriter(layoutOf(definition)).writeMessage(message);
  await writer.addMessage({ channelId, sequence: 0, logTime: BigInt(time), publishTime: 0n, data });
}
await writer.end();
writeFileSync(process.argv[2], buffer.get());

const reader = new mcap.McapStreamReader(), schemas = new Map(), channels = new Map();
reader.append(readFileSync(process.argv[3]));
for (let record; (record = reader.nextRecord());) {
  if (record.type === "Schema") schemas.set(record.id, layoutOf(new TextDecoder().decode(record.data)));
  if (record.type === "Channel") channels.set(record.id, record);
  if (record.type !== "Message") continue;
  const { topic, schemaId } = channels.get(record.channelId);
  const message = new serialization.MessageReader(schemas.get(schemaId)).readMessage(record.data);
  console.log(JSON.stringify({ topic, time: String(record.logTime), message }));
}
