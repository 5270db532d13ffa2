# Perl's Net::SNMP. managers.py describes what a driver reads and writes.
use strict;
use warnings;
use JSON::PP;
use Net::SNMP qw(:asn1 oid_lex_sort);

$| = 1;
my ($version, $port, $user) = ($ENV{VERSION}, $ENV{PORT}, decode_json($ENV{USER_OF_3}));
my %names = (
    INTEGER() => 'INTEGER', GAUGE32() => 'Gauge32', OCTET_STRING() => 'OCTET STRING',
    NOSUCHINSTANCE() => 'noSuchInstance', NOSUCHOBJECT() => 'noSuchObject',
);

sub session {
    my ($community) = @_;
    my @security = (-community => $community);
    if ($version eq '3') {
        @security = (
            -username => $user->{name}, -authprotocol => 'sha', -authpassword => $user->{authentication},
            -privprotocol => 'aes', -privpassword => $user->{privacy},
        );
    }
    my ($session, $error) = Net::SNMP->session(
        -hostname => '127.0.0.1', -port => $port, -version => $version, -timeout => 5, -retries => 0,
        -translate => 0, @security);
    die $error unless $session;
    return $session;
}

my ($reader, $writer) = (session('public'), session('private'));

sub answer {
    my ($session, $values) = @_;
    return { error => $session->error } unless $values;
    my $types = $session->var_bind_types;
    my @bindings = map {
        my ($kind, $value) = ($names{ $types->{$_} }, $values->{$_});
        [ $_, $kind, $kind eq 'OCTET STRING' ? unpack('H*', $value) : $kind =~ /^no/ ? undef : $value + 0 ];
    } oid_lex_sort(keys %$values);
    return { values => \@bindings };
}

while (my $line = <STDIN>) {
    my ($command, @words) = @{ decode_json($line) };
    my $answer;
    if ($command eq 'walk') {
        $answer = answer($reader, $reader->get_table(-baseoid => $words[0]));
    } elsif ($command eq 'get') {
        $answer = answer($reader, $reader->get_request(-varbindlist => \@words));
    } else {
        my ($oid, $kind, $value) = @words;
        my @binding = $kind eq 'INTEGER' ? (INTEGER, $value) : (OCTET_STRING, pack('H*', $value));
        $answer = answer($writer, $writer->set_request(-varbindlist => [ $oid, @binding ]));
    }
    print encode_json($answer), "\n";
}
