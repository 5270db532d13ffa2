// npm's net-snmp. managers.py describes what a driver reads and writes.
const readline = require("readline");
const snmp = require("net-snmp");

const { VERSION: version, PORT: port } = process.env;
const user = JSON.parse(process.env.USER_OF_3);
const names = {
  [snmp.ObjectType.Integer]: "INTEGER",
  [snmp.ObjectType.Gauge]: "Gauge32",
  [snmp.ObjectType.OctetString]: "OCTET STRING",
  [snmp.ObjectType.NoSuchInstance]: "noSuchInstance",
  [snmp.ObjectType.NoSuchObject]: "noSuchObject",
};

function session(community) {
  const options = { port: Number(port), timeout: 5000, retries: 0 };
  if (version !== "3") {
    options.version = version === "1" ? snmp.Version1 : snmp.Version2c;
    return snmp.createSession("127.0.0.1", community, options);
  }
  return snmp.createV3Session("127.0.0.1", {
    name: user.name,
    level: snmp.SecurityLevel.authPriv,
    authProtocol: snmp.AuthProtocols.sha,
    authKey: user.authentication,
    privProtocol: snmp.PrivProtocols.aes,
    privKey: user.privacy,
  }, options);
}

const reader = session("public");
const writer = session("private");

function binding({ oid, type, value }) {
  const kind = names[type];
  return [oid, kind, kind === "OCTET STRING" ? value.toString("hex") : kind.startsWith("no") ? null : value];
}

function answer(error, varbinds) {
  console.log(JSON.stringify(error ? { error: error.message } : { values: varbinds.map(binding) }));
}

const commands = {
  walk(oid) {
    const found = [];
    reader.subtree(oid, 20, (varbinds) => { found.push(...varbinds); }, (error) => answer(error, found));
  },
  get(...oids) {
    reader.get(oids, answer);
  },
  set(oid, kind, value) {
    const typed = kind === "INTEGER"
      ? { type: snmp.ObjectType.Integer, value }
      : { type: snmp.ObjectType.OctetString, value: Buffer.from(value, "hex") };
    writer.set([{ oid, ...typed }], answer);
  },
};

const input = readline.createInterface({ input: process.stdin });
input.on("line", (line) => {
  const [command, ...words] = JSON.parse(line);
  commands[command](...words);
});
input.on("close", () => {
  reader.close();
  writer.close();
});
