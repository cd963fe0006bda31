// Reads a bag of MCAP and writes another of its messages, with libraries that share no code with ours, and
// says the values that it read, a JSON array a line: node bags.mjs FROM TO
import { readFileSync, writeFileSync } from "node:fs";
import rosmsg from "@foxglove/rosmsg";
import serialization from "@foxglove/rosmsg2-serialization";
import * as mcap from "@mcap/core";

const reader = new mcap.McapStreamReader(), schemas = new Map(), channels = new Map();
const buffer = new mcap.TempBuffer(), writer = new mcap.McapWriter({ writable: buffer, chunkSize: 3000 });
await writer.start({ profile: "ros2", library: "" });
reader.append(readFileSync(process.argv[2]));
for (let record; (record = reader.nextRecord());) {
  if (record.type === "Schema") {
    const layout = rosmsg.parse(new TextDecoder().decode(record.data), { ros2: true });
    schemas.set(record.id, { layout, number: await writer.registerSchema(record) });
  } else if (record.type === "Channel") {
    const { layout, number } = schemas.get(record.schemaId);
    channels.set(record.id, { ...record, layout, number: await writer.registerChannel({ ...record, schemaId: number }) });
  } else if (record.type === "Message") {
    const { topic, layout, number } = channels.get(record.channelId);
    const message = new serialization.MessageReader(layout).readMessage(record.data);
    const values = (_, value) => ArrayBuffer.isView(value) ? Array.from(value)
      : typeof value === "object" ? Object.values(value) : value;
    console.log(JSON.stringify([topic, String(record.logTime), message], values));
    const data = new serialization.MessageWriter(layout).writeMessage(message);
    await writer.addMessage({ ...record, channelId: number, data });
  }
}
await writer.end();
writeFileSync(process.argv[3], buffer.get());
