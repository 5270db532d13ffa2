"""Checks a camera from outside, over SNMP, against what docs/objects.md and the MIBs promise."""
