// An independent reader of a stream and its bucket: node reader.mjs URL[,URL...] STREAM OUTPUT
//
// Writes each record's line to OUTPUT, and prints as JSON what it found: the number of records, and
// for each attachment that they name the SHA-256 of what the object store gave for it.
import { createHash } from 'node:crypto';
import { createWriteStream } from 'node:fs';
import { once } from 'node:events';
import { connect } from '@nats-io/transport-node';
import { AckPolicy, jetstream } from '@nats-io/jetstream';
import { Objm } from '@nats-io/obj';

const [servers, stream, output] = process.argv.slice(2);
const connection = await connect({ servers: servers.split(',') });
const js = jetstream(connection);
const bucket = await new Objm(js).open(stream);
// Ordered consumers of this client need a newer server than Debian's.
const manager = await js.jetstreamManager();
const { name } = await manager.consumers.add(stream, { ack_policy: AckPolicy.None });
const consumer = await js.consumers.get(stream, name);
let left = (await consumer.info()).num_pending;

const file = createWriteStream(output);
const found = { records: 0, attachments: {} };
while (left > 0) {
  for await (const message of await consumer.fetch({ max_messages: 500, expires: 5000 })) {
    left = message.info.pending;
    const line = message.string();
    file.write(line + '\n');
    found.records++;
    for (const [key, value] of Object.entries(JSON.parse(line))) {
      if (!key.endsWith('_file') || !value?.name) continue;
      const object = await bucket.get(value.name);  // checks the digest in the object's facts
      const hash = createHash('sha256');
      let size = 0;
      for await (const chunk of object.data) {
        hash.update(chunk);
        size += chunk.length;
      }
      if (await object.error) throw await object.error;
      found.attachments[value.name] = { size, sha256: hash.digest('hex') };
    }
  }
}
file.end();
await once(file, 'finish');
console.log(JSON.stringify(found));
await connection.close();
