// Picks out of GitHub's published API description and recorded exchanges the
// pieces the GitHub client tests replay, and writes them to one small file:
//
//   node extract.mjs NODE_MODULES OUTPUT
//
// Every piece carries a `source` saying which package file and key it came from.
// Where the packages give no body (the 401 and 403 of the API description name a
// schema and a description only), the piece says what was put together and from
// what. Anything not where it is expected stops the script: a test replaying a
// piece that is not GitHub's would prove nothing.
import fs from "node:fs";
import path from "node:path";

const [nodeModules, output] = process.argv.slice(2);
if (!nodeModules || !output) {
  console.error("usage: node extract.mjs NODE_MODULES OUTPUT");
  process.exit(2);
}

const OPENAPI = "@octokit/openapi";
const FIXTURES = "@octokit/fixtures";
const DESCRIPTION = "generated/api.github.com.json";
const ORIGIN = "https://api.github.com";

function fail(message) {
  throw new Error(message);
}

function readJson(pkg, file) {
  return JSON.parse(fs.readFileSync(path.join(nodeModules, pkg, file), "utf8"));
}

function installedVersion(pkg) {
  return readJson(pkg, "package.json").version;
}

const api = readJson(OPENAPI, DESCRIPTION);

// Follows a local "#/components/..." reference; says which key it reached.
function resolve(node, where) {
  if (!node || typeof node.$ref !== "string") return { node, where };
  const ref = node.$ref;
  if (!ref.startsWith("#/")) fail(`${where}: reference ${ref} is not local`);
  let target = api;
  for (const key of ref.slice(2).split("/")) {
    target = target?.[key];
    if (target === undefined) fail(`${where}: reference ${ref} leads nowhere`);
  }
  return { node: target, where: ref.slice(2).split("/").join(".") };
}

function operation(route) {
  const op = api.paths?.[route]?.get;
  if (!op) fail(`${DESCRIPTION}: no GET ${route}`);
  return op;
}

// The value of one named example of an operation's 200 reply.
function example(route, exampleName) {
  const where = `paths["${route}"].get.responses["200"].content["application/json"].examples["${exampleName}"]`;
  const examples = operation(route).responses?.["200"]?.content?.["application/json"]?.examples;
  if (!examples?.[exampleName]) fail(`${DESCRIPTION}: no ${where}`);
  const { node, where: reached } = resolve(examples[exampleName], where);
  if (node.value === undefined) fail(`${DESCRIPTION}: ${reached} has no value`);
  return {
    source: `${OPENAPI} ${DESCRIPTION}: ${where} -> ${reached}.value`,
    body: node.value,
  };
}

// A non-2xx reply an operation declares: its status and description, and the
// schema it names if any.
function declaredReply(route, status) {
  const where = `paths["${route}"].get.responses["${status}"]`;
  const declared = operation(route).responses?.[status];
  if (!declared) fail(`${DESCRIPTION}: no ${where}`);
  const { node, where: reached } = resolve(declared, where);
  const schemaRef = node.content?.["application/json"]?.schema?.$ref;
  return {
    source: `${OPENAPI} ${DESCRIPTION}: ${where} -> ${reached}`,
    status: Number(status),
    description: node.description,
    schema: schemaRef ? schemaRef.split("/").pop() : null,
    hasExample: Boolean(node.content?.["application/json"]?.example ||
                        node.content?.["application/json"]?.examples),
  };
}

// A declared error with a basic-error schema and no example: the body is the
// schema's `message` key holding the reply's own description.
function basicErrorReply(route, status) {
  const reply = declaredReply(route, status);
  if (reply.schema !== "basic-error") fail(`${reply.source}: schema is ${reply.schema}`);
  if (reply.hasExample) fail(`${reply.source}: has an example now; replay it instead`);
  const properties = api.components.schemas["basic-error"]?.properties ?? {};
  if (properties.message?.type !== "string") fail("basic-error has no string message");
  return {
    ...reply,
    body: { message: reply.description },
    bodySource:
      `no example body in the package: {"message": <description>} put together from ` +
      `components.responses description and components.schemas["basic-error"].properties.message`,
  };
}

function scenario(name) {
  const file = `scenarios/api.github.com/${name}/normalized-fixture.json`;
  return { file, exchanges: readJson(FIXTURES, file) };
}

// One recorded exchange: where it went, what came back, and every header GitHub
// sent with it. The request headers are left behind: they hold a token, if only
// a placeholder one.
function exchange(name, index, withBody) {
  const { file, exchanges } = scenario(name);
  const recorded = exchanges[index];
  if (!recorded) fail(`${FIXTURES} ${file}: no exchange [${index}]`);
  const piece = {
    source: `${FIXTURES} ${file}: [${index}] (method, path, status, headers${withBody ? ", response" : ""})`,
    method: recorded.method,
    path: recorded.path,
    status: recorded.status,
    headers: recorded.headers,
  };
  if (withBody) piece.body = recorded.response;
  return piece;
}

const versions = { [OPENAPI]: installedVersion(OPENAPI), [FIXTURES]: installedVersion(FIXTURES) };

const pages = scenario("paginate-issues").exchanges.map((_, i) => exchange("paginate-issues", i, false));
if (pages.length !== 5) fail(`paginate-issues has ${pages.length} exchanges, not 5`);
for (const page of pages) {
  if (page.method !== "get" || page.status !== 200) fail(`${page.source}: not a 200 GET`);
  if (typeof page.headers?.link !== "string") fail(`${page.source}: no link header`);
  if (!page.headers.link.includes(`<${ORIGIN}/`)) fail(`${page.source}: link not on ${ORIGIN}`);
}

const notFound = exchange("branch-protection", 0, true);
if (notFound.status !== 404 || typeof notFound.body?.message !== "string") {
  fail(`${notFound.source}: not a 404 with a message`);
}

const material = {
  packages: versions,
  origin: ORIGIN,
  examples: {
    user: example("/user", "response-with-public-and-private-profile-information"),
    repositories: example("/user/repos", "default"),
    branches: example("/repos/{owner}/{repo}/branches", "default"),
  },
  declared: {
    notModified: declaredReply("/user", "304"),
    requiresAuthentication: basicErrorReply("/user", "401"),
    forbidden: basicErrorReply("/user", "403"),
  },
  recorded: {
    issuePages: pages,
    branchNotProtected: notFound,
  },
};
if (material.declared.notModified.schema !== null) fail("not_modified now has a body");
if (!Array.isArray(material.examples.repositories.body)) fail("repositories example is no array");
if (!Array.isArray(material.examples.branches.body)) fail("branches example is no array");

// Written whole or not at all, so a test never reads half a file.
const partial = `${output}.partial`;
fs.writeFileSync(partial, JSON.stringify(material, null, 2) + "\n");
fs.renameSync(partial, output);
console.log(
  `github-material: wrote ${output} from ${OPENAPI} ${versions[OPENAPI]} and ${FIXTURES} ${versions[FIXTURES]}`,
);
