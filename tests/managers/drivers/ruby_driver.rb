# ruby-snmp, which has no SNMPv3. managers.py describes what a driver reads and writes.
require 'json'
require 'snmp'

NAMES = {
  SNMP::Integer => 'INTEGER', SNMP::Gauge32 => 'Gauge32', SNMP::OctetString => 'OCTET STRING',
  SNMP::NoSuchInstance => 'noSuchInstance', SNMP::NoSuchObject => 'noSuchObject'
}.freeze

MANAGER = SNMP::Manager.new(
  host: '127.0.0.1', port: ENV.fetch('PORT').to_i, community: 'public', write_community: 'private',
  version: { '1' => :SNMPv1, '2c' => :SNMPv2c }.fetch(ENV.fetch('VERSION')), timeout: 5, retries: 0
)

def binding_of(varbind)
  kind = NAMES.find { |type, _| type == varbind.value || varbind.value.instance_of?(type) }.last
  value = { 'OCTET STRING' => ->(v) { v.unpack1('H*') }, 'INTEGER' => :to_i.to_proc, 'Gauge32' => :to_i.to_proc }[kind]
  [varbind.name.to_str, kind, value&.call(varbind.value)]
end

def answer(response)
  return { error: response.error_status.to_s } unless response.error_status == :noError

  { values: response.varbind_list.map { |varbind| binding_of(varbind) } }
end

def walk(oid)
  values = []
  MANAGER.walk(oid) { |varbind| values << binding_of(varbind) }
  { values: values }
end

def set(oid, kind, value)
  value = kind == 'INTEGER' ? SNMP::Integer.new(value) : SNMP::OctetString.new([value].pack('H*'))
  answer(MANAGER.set(SNMP::VarBind.new(oid, value)))
end

$stdout.sync = true
$stdin.each_line do |line|
  command, *words = JSON.parse(line)
  done = case command
         when 'walk' then walk(*words)
         when 'get' then answer(MANAGER.get(words))
         else set(*words)
         end
  puts JSON.generate(done)
end
