# Answers getClientConfiguration on SOAP::Lite, rpc/encoded. Prints its URL once it listens.
use strict;
use warnings;
use SOAP::Transport::HTTP;

package Service;

sub getClientConfiguration {
    my (undef, $screen_name, $password, $client_name, $client_version) = @_;
    die SOAP::Fault->faultcode('Server')->faultstring('wrong password') if $password ne 'p<&>w';
    my $pair = sub {
        my ($name, $value) = @_;
        return SOAP::Data->name('item' => \SOAP::Data->value(
            SOAP::Data->name('name' => $name)->type('string'), SOAP::Data->name('value' => $value)->type('string')));
    };
    return SOAP::Data->name('configuration' => \SOAP::Data->value(
        $pair->('screen', $screen_name), $pair->('client', "$client_name $client_version"),
        $pair->("gr\x{fc}\x{df}e", "<&> \x{20ac}")));
}

package main;

my $daemon = SOAP::Transport::HTTP::Daemon->new(LocalAddr => '127.0.0.1', LocalPort => 0);
$daemon->dispatch_with({'urn:tessel-test' => 'Service'});
$daemon->on_action(sub { });
$| = 1;
print $daemon->url, "\n";
$daemon->handle;
