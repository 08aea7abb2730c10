<?php
// Answers getClientConfiguration and echo, rpc/encoded or, for /literal, document/literal, on PHP's SOAP extension.
class Pair
{
    public $name;
    public $value;
}

function pair($name, $value)
{
    $pair = new Pair();
    $pair->name = $name;
    $pair->value = $value;
    return $pair;
}

function getClientConfiguration($screenName, $password, $clientName, $clientVersion)
{
    if ($password !== 'p<&>w') {
        throw new SoapFault('Server', 'wrong password');
    }
    return [pair('screen', $screenName), pair('client', "$clientName $clientVersion"), pair('grüße', '<&> €')];
}

function repeat($text)
{
    return $text;
}

$server = new SoapServer(null, [
    'uri' => 'urn:tessel-test',
    'use' => $_SERVER['REQUEST_URI'] === '/literal' ? SOAP_LITERAL : SOAP_ENCODED,
]);
$server->addFunction(['getClientConfiguration', 'repeat']);
$server->handle();
