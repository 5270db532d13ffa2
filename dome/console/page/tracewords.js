// What a record of the trace says, in words. Texts only: everything in a record may come from the wire.

export function bindingText({name, oid, type, value, meaning}, isAsked) {
  const title = name || oid;
  if (isAsked && type === 'NULL') return title;
  return `${title}${value ? ` = ${value}` : ''}${meaning ? (value ? ` (${meaning})` : `: ${meaning}`) : ''}`;
}

/// Of a SET what it asks for, otherwise what was answered; of a notification its last object.
export function subjectOf({words, pdu, bindings, answer}) {
  if (words !== undefined) return words;
  if (pdu === 'trap') return bindings.length ? bindingText(bindings[bindings.length - 1], false) : '';
  const hasAnswer = answer?.length > 0;
  const shown = pdu !== 'SET' && hasAnswer ? answer : bindings;
  if (!shown.length) return '';
  return bindingText(shown[0], !hasAnswer) + (shown.length > 1 ? ` and ${shown.length - 1} more` : '');
}

export function outcomeOf({words, pdu, error, failed}) {
  if (words !== undefined) return failed ? 'refused' : 'done';
  if (pdu === 'trap') return 'sent';
  return error === null ? 'dropped' : error === 'noError' ? 'ok' : error;
}

export const addressOf = ({peer}) => (peer ?? '').replace(/:\d+$/, '');
export const clockOf = ({time}) => time.slice(11, 23);
export const motionsOf = ({motions}) => motions.map(({axis, end}) => `; ${axis} ${end}`).join('');

/// One that read something, and got it.
export const isRead = ({pdu, failed}) => !failed && ['GET', 'GETNEXT', 'GETBULK'].includes(pdu);

function callText({service, operation, arguments: given, outcome, error, microseconds}) {
  const time = outcome === 'not made' ? '' : ` in ${microseconds} µs`;
  return `${service}.${operation}${JSON.stringify(given)} ${outcome}${error ? ` (${error})` : ''}${time}`;
}

function trapText({trap, bindings, receivers, event}) {
  const to = receivers.map(({peer, sent}) => `, ${sent ? 'sent to' : 'refused for'} ${peer}`).join('');
  const values = bindings.map((binding) => `; ${bindingText(binding, false)}`).join('');
  return `${trap}${to}${event ? `, for event ${event.number}` : ''}${values}`;
}

function errorText({error, index}) {
  return index ? `${error}, of binding ${index}` : error;
}

/// What is known of a record: [name, text, the binding that was asked].
export function detailsOf(record) {
  const from = [record.peer, record.version && `SNMPv${record.version}`, record.id !== null && `request id ${record.id}`,
    record.microseconds !== null && `${record.microseconds} µs`];
  return [
    ['Time', record.time],
    ...(record.peer ? [['From', from.filter(Boolean).join(', ')]] : []),
    ...(record.error && record.error !== 'noError' ? [['Error', errorText(record)]] : []),
    ...(record.reason ? [['Why', record.reason]] : []),
    ...record.bindings.map((binding) => ['Asked', `${bindingText(binding, true)}, ${binding.type}, ${binding.oid}`, binding]),
    ...(record.answer ?? []).map((binding) => ['Answered', bindingText(binding, false)]),
    ...record.calls.map((call) => ['Call', callText(call)]),
    ...record.motions.map(({words}) => ['Motion', words]),
    ...record.traps.map((trap) => ['Trap', trapText(trap)]),
    ...(record.cut ? [['Cut', 'the record was too long and has lost a part']] : []),
  ];
}
