<?php
// Answers getClientConfiguration on PHP's SOAP extension, rpc/encoded or, for /literal, with literal values.
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

$server = new SoapServer(null, [
    'uri' => 'urn:tessel-test',
    'use' => $_SERVER['REQUEST_URI'] === '/literal' ? SOAP_LITERAL : SOAP_ENCODED,
]);
$server->addFunction('getClientConfiguration');
$server->handle();
