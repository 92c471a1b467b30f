#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0

"""Registers a service, waits for another one, and follows it: component.py ID ADDRESS OTHER_ID"""
import sys

import qvclient

own, address, other = int(sys.argv[1]), sys.argv[2], int(sys.argv[3])
with qvclient.Client() as client:
    client.register({own: address})
    print("found", client.wait_for(other), flush=True)
    services = {}
    for event in client.watch([other]):
        event.apply(services)
        print("now at", services.get(other, "no address"), flush=True)
