// Runs the Khronos glTF validator on each file named on the command line and prints one JSON
// line per file: {"file", "errors", "warnings", "messages": [first errors]}. Exit code 0 when
// every file has no error, 1 otherwise.
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import validator from 'gltf-validator';

let failed = false;
for (const file of process.argv.slice(2)) {
  const bytes = new Uint8Array(await readFile(file));
  const report = await validator.validateBytes(bytes, {
    uri: path.basename(file),
    externalResourceFunction: (uri) =>
      readFile(path.join(path.dirname(file), decodeURIComponent(uri))).then((b) => new Uint8Array(b)),
  });
  const errors = report.issues.numErrors;
  if (errors !== 0) failed = true;
  console.log(JSON.stringify({
    file,
    errors,
    warnings: report.issues.numWarnings,
    messages: report.issues.messages.filter((m) => m.severity === 0).slice(0, 5).map((m) => `${m.code} ${m.pointer ?? ''} ${m.message}`),
  }));
}
process.exit(failed ? 1 : 0);
