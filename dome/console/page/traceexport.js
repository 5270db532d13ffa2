// Saves records in the formats of domectl trace: JSON, one object a line, and a packet capture.

/// Lost records count for the next one that is written.
export function jsonLines(entries) {
  let lost = 0;
  let lines = '';
  for (const {record, lost: gone} of entries) {
    lost += gone ?? 0;
    if (!record) continue;
    const {lost: ignored, ...whole} = record;
    lines += `${JSON.stringify(lost ? {...whole, lost} : whole)}\n`;
    lost = 0;
  }
  return lines;
}

function octetsOf(hexadecimal) {
  const octets = new Uint8Array(hexadecimal.length / 2);
  for (let i = 0; i < octets.length; ++i) octets[i] = parseInt(hexadecimal.substr(2 * i, 2), 16);
  return octets;
}

/// {octets: the parts of a capture, missing: how many records' messages the camera no longer keeps}. What was read
/// before the camera began its list anew has other positions.
export async function capture(entries, started) {
  const records = entries.filter(({record}) => record);
  const wanted = new Set(records.filter((entry) => entry.started === started).map(({position}) => position));
  const octets = [];
  let found = 0;
  let position = Math.min(...wanted, Infinity) - 1;
  for (let more = true; more; ) {
    const response = await fetch(`/api/trace/packets?since=${Number.isFinite(position) ? position : 0}`);
    const answer = await response.json();
    if (!response.ok) throw new Error(answer.error);
    if (answer.started !== started) throw new Error('the camera no longer has these records');
    if (!octets.length) octets.push(octetsOf(answer.head));
    const first = answer.next - answer.packets.length + 1;
    answer.packets.forEach((packets, i) => {
      if (!wanted.has(first + i)) return;
      ++found;
      octets.push(octetsOf(packets));
    });
    position = answer.next;
    more = answer.more && position < Math.max(...wanted);
  }
  return {octets, missing: records.length - found};
}

export function save(name, type, parts) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob(parts, {type}));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}
