#!/usr/bin/env bash
# Placeholder until the cross build lands.
echo "== armhf: not yet set up"
