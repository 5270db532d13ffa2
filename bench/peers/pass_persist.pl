#!/usr/bin/perl
# Serves a camera's objects to snmpd's pass_persist: pass_persist.pl OBJECTS, on standard input and output. The file is
# described in objects.h.
use strict;
use warnings;
use Net::DBus;

my $bus = Net::DBus->new($ENV{TAVOS_BUS_ADDRESS}, nomainloop => 1);
my (%services, @objects, %known);

open(my $file, '<', $ARGV[0]) or die "$ARGV[0]: $!";
while (my $line = <$file>) {
    chomp $line;
    my ($name, $type, $value, $calls, $result, $set) = split /\t/, $line;
    $value = join(' ', $value =~ /../g) if $type eq 's';
    my @calls = $calls eq '-' ? () : map {
        my ($service, $member, @arguments) = split / /;
        [$service, $member, map { substr($_, 2) } @arguments];
    } split /;/, $calls;
    push @objects, {name => ".$name", key => key(".$name"), type => $type, value => $value, calls => \@calls,
                    result => $result, set => $set};
    $known{".$name"} = $objects[-1];
}
close $file;

# A text that sorts like the name.
sub key { return pack('N*', split(/\./, substr($_[0], 1))); }

sub call {
    my ($service, $member, @arguments) = @_;
    $services{$service} //=
        $bus->get_service("org.tavos.$service")->get_object("/org/tavos/$service", "org.tavos.$service");
    return $services{$service}->$member(@arguments);
}

sub refresh {
    my ($object) = @_;
    my $answer;
    $answer = call(@$_) for @{$object->{calls}};
    return unless @{$object->{calls}};
    $object->{value} = $answer + 0 if $object->{result} eq 'number';
    $object->{value} = sprintf('%02x', $answer ? $1 : 0) if $object->{result} =~ /^bit:(\d+)/;
}

sub next_object {
    my $key = key($_[0]);
    my ($low, $high) = (0, scalar @objects);
    while ($low < $high) {
        my $middle = int(($low + $high) / 2);
        if ($objects[$middle]{key} le $key) { $low = $middle + 1 } else { $high = $middle }
    }
    return $objects[$low];
}

sub answer {
    my ($object) = @_;
    return "NONE\n" unless $object && eval { refresh($object); 1 };
    my %words = (s => 'octet', i => 'integer', g => 'gauge');
    return "$object->{name}\n$words{$object->{type}}\n$object->{value}\n";
}

sub octets {
    my ($value) = @_;
    return unpack('C*', $1) if $value =~ /^string "(.*)"$/;
    return map { hex } split / /, $1 if $value =~ /^octet "(.*)"$/;
    return ();
}

sub set {
    my ($object, @octets) = @_;
    return "not-writable\n" if !$object || $object->{set} eq '-';
    $object->{value} = join(' ', map { sprintf('%02x', $_) } @octets);
    eval {
        if ($object->{set} eq 'position' && $octets[0] == 2) {
            my $speed = $octets[1] > 127 ? $octets[1] - 256 : $octets[1];
            call('Pan1', 'SetPositionAtSpeed', ($octets[2] * 256 + $octets[3]) * 10, $speed / 127, 300);
        } elsif ($object->{set} eq 'control' && $octets[0] & 1) {
            my $on = $octets[1] & 0x80;
            call('Relay3', $on ? 'SetRelay' : 'ClearRelay', 'BNK2', 0, $on ? 1 : 0);
        }
        1;
    } or return "commit-failed\n";
    return "DONE\n";
}

$| = 1;
while (defined(my $command = <STDIN>)) {
    chomp $command;
    next if $command eq '';    # snmpd ends a SET with one
    if ($command eq 'PING') {
        print "PONG\n";
        next;
    }
    chomp(my $name = <STDIN> // '');
    if ($command eq 'get') {
        print answer($known{$name});
    } elsif ($command eq 'getnext') {
        print answer(next_object($name));
    } elsif ($command eq 'set') {
        chomp(my $value = <STDIN> // '');
        print set($known{$name}, octets($value));
    } else {
        print "NONE\n";
    }
}
