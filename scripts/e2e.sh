#!/usr/bin/env bash
echo "e2e: not wired yet"
