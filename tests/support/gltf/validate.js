// usage: node validate.js FOLDER_OF_MODULES FILE...
// Runs the glTF validator on each file. Prints its errors and warnings; the exit code is 1 if there are any.
const fs = require('fs');
const path = require('path');
const [modules, ...files] = process.argv.slice(2);
const validator = require(path.join(modules, 'gltf-validator'));

(async () => {
  let bad = files.length === 0;
  for (const file of files) {
    const report = await validator.validateBytes(new Uint8Array(fs.readFileSync(file)), { maxIssues: 0 });
    for (const issue of report.issues.messages.filter((m) => m.severity < 2)) {
      bad = true;
      console.log(`${file}: ${issue.code} at ${issue.pointer}: ${issue.message}`);
    }
    console.log(`${file}: ${report.issues.numErrors} errors, ${report.issues.numWarnings} warnings, ` +
        `${report.info.totalTriangleCount} triangles`);
  }
  process.exit(bad ? 1 : 0);
})();
