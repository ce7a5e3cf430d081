// Loaded before the packer, which dates every file in a bundle with the time of day: now is
// SOURCE_DATE_EPOCH instead, so that two packings give the same bytes. Set TZ=UTC as well.
const now = Number(process.env.SOURCE_DATE_EPOCH) * 1000;
if (!Number.isFinite(now)) throw new Error("SOURCE_DATE_EPOCH is not set");

globalThis.Date = class extends Date {
  constructor(...given) {
    super(...(given.length > 0 ? given : [now]));
  }
};
