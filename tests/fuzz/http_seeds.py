"""Seeds of the HTTP API's target."""

HASH = "$scrypt$ln=10,r=8,p=1$" + "00" * 16 + "$" + "11" * 32
BODY = '{"verdict": "deny"}'


def request(method, path="/", query="", cookie="", last="", secret="", body=""):
    return bytes([method]) + "\n".join((path, query, cookie, last, secret, body)).encode()


def requests():
    yield request(0, "/api/v1/clients", "limit=3&mac=06:00&ssid=office", "__Host-session=ab; other=1", "e-1", HASH, BODY)
    yield request(0, "/api/v1/clients/06:00:00:00:00:01", "ap=02:00:00:00:10:00&state=none")
    yield request(0, "/api/v1/clients", "name=x+y&cursor=06:00:00:00:00:c8")
    yield request(2, "/api/v1/acl/1/clients/06%3A00%3A00%3A00%3A00%3A01", "index=1", body=BODY)
    yield request(0, "/../../etc/passwd", "a=%00", "a=b=c;;", "e-", HASH[:-1], "[" * 2000)
    yield request(4, "/%2e%2e/%2f", "=&a=1&a=2", body='{"verdict": {"verdict": []}}')


def all_seeds():
    return {"http_request": list(requests())}
