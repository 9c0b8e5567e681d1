#!/usr/bin/env bash
# Installs the published MCP client library (npm packages pinned in
# tests/mcp-client/) into build-mcp-client/, where the end-to-end test of
# quorvane-mcp loads it to speak to the bridge as an agent would. Safe to run
# again: npm runs only when the pinned versions changed or the install is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/npm-pinned.sh tests/mcp-client build-mcp-client mcp-client
