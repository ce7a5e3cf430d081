// Checks the signature in a macOS program for one processor: node signature.mjs FILE. It must be there,
// name no signer ("ad hoc") and hold the hash of every page. Whatever changes a program after it was
// linked, a tool that strips it say, may spoil that, and a Mac with Apple's processor ends it then.
import { createHash } from "node:crypto";
import { readFileSync } from "node:fs";

const kHeader = 32; // bytes before the load commands
const kCodeSignature = 0x1d; // the load command that says where the signature is
const kAdHoc = 0x2;
const kSHA256 = 2;

// Everything in a signature is big-endian, everything else in a program for these processors not.
function findSignature(file) {
  let at = kHeader;
  for (let left = file.readUInt32LE(16); left > 0; left--) {
    if (file.readUInt32LE(at) === kCodeSignature)
      return file.subarray(file.readUInt32LE(at + 8)).subarray(0, file.readUInt32LE(at + 12));
    at += file.readUInt32LE(at + 4);
  }
  throw new Error("no signature");
}

function findDirectory(signature) {
  if (signature.readUInt32BE(0) !== 0xfade0cc0) throw new Error("the signature has another form");
  for (let i = 0; i < signature.readUInt32BE(8); i++) {
    const blob = signature.subarray(signature.readUInt32BE(12 + 8 * i + 4));
    if (blob.readUInt32BE(0) === 0xfade0c02) return blob;
  }
  throw new Error("the signature has no hashes");
}

function checkPages(file, directory) {
  const hashes = directory.subarray(directory.readUInt32BE(16));
  const count = directory.readUInt32BE(28);
  const end = directory.readUInt32BE(32);
  const pageSize = 1 << directory[39];
  if ((directory.readUInt32BE(12) & kAdHoc) === 0) throw new Error("the signature is not ad hoc");
  if (directory[36] !== 32 || directory[37] !== kSHA256) throw new Error("its hashes are not SHA-256");
  if (count !== Math.ceil(end / pageSize)) throw new Error("it does not cover the file");
  for (let page = 0; page < count; page++) {
    const bytes = file.subarray(page * pageSize, Math.min((page + 1) * pageSize, end));
    const hash = createHash("sha256").update(bytes).digest();
    if (!hash.equals(hashes.subarray(32 * page, 32 * page + 32)))
      throw new Error(`page ${page} of ${count} is not the one that was signed`);
  }
}

const file = readFileSync(process.argv[2]);
try {
  const signature = findSignature(file);
  const directory = findDirectory(signature);
  if (directory.readUInt32BE(32) !== signature.byteOffset - file.byteOffset)
    throw new Error("it does not cover the file");
  checkPages(file, directory);
} catch (error) {
  console.log(error.message);
  process.exitCode = 1;
}
