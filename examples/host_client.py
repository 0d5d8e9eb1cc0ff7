#!/usr/bin/env python3
# Talks to clipboard-host as an editor's front end does: one pipe kept open, each reply read
# before the next request is written. Usage: host_client.py CLIPBOARD-HOST [OPTIONS...]
import json
import subprocess
import sys

host = subprocess.Popen(sys.argv[1:], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)


def ask(kind, request, mode=0):
    """Sends one request and returns its reply (or its error line)."""
    host.stdin.write(json.dumps({"kind": kind, "mode": mode, "request": request}) + "\n")
    host.stdin.flush()
    while True:
        line = host.stdout.readline()
        if not line:
            sys.exit("clipboard-host ended")
        answer = json.loads(line)
        if answer["type"] == "notification":  # may come at any time once subscribed
            print("changed:", json.dumps(answer["notification"]["flavors"]), flush=True)
            continue
        # Replies echo the request id in the reply; error lines name it beside "error".
        about = answer["reply"] if answer["type"] == "reply" else answer
        if about.get("requestid") in (request["requestid"], None):
            return answer


def show(name, answer):
    if answer["type"] == "error":
        print(name, "failed:", answer["error"], flush=True)
    else:
        print(name + ":", json.dumps(answer["reply"], sort_keys=True), flush=True)


show("subscribe", ask("subscribe", {"requestid": "s1", "uid": "ui"}))
show("get", ask("get", {"requestid": "g1", "uid": "ui", "flavors": ["text/plain"]}))
items = [{"mimeType": "text/plain", "data": "hello from python"}]
show("set", ask("set", {"requestid": "w1", "uid": "ui", "clipboardItems": items}))
show("flavors", ask("flavors", {"requestid": "f1", "uid": "ui"}))
show("get", ask("get", {"requestid": "g2", "uid": "ui", "flavors": ["text/plain"]}))

# The host owns what it set until it exits: paste it elsewhere now.
print("press Enter to quit", flush=True)
sys.stdin.readline()
host.stdin.close()
sys.exit(host.wait())
