"""objects.py refuses mistakes in objects.toml and names the object."""

import shutil
import subprocess
import sys

import pytest

from desk import ROOT

FAULTS = [
    ("constant = 65535", "constnt = 65535", "rangePanHomePosition: got an unexpected keyword argument 'constnt'"),
    ('oid = "orvexEnterprise.1.1.3.0"\n', "", "serialNumber: missing 1 required positional argument: 'oid'"),
    ("orvexEnterprise.1.1.3.0", "orvexEnterprise.one", "serialNumber: oid must be numbers"),
    ("4.2.7.8.2.0", "4.2.7.8.1.0", "outputControl: its name or OID is that of outputStatus"),
    ("bytes = 2", "bytes = 3", "rangeTiltUpLimit: bytes must be 1, 2 or 4, not 3"),
    ('access = "read-write"', 'access = "write"', "rebootDevice: access must be read-only or read-write, not write"),
    ('summary = "The serial number, from `myname -s`"\n', "", "serialNumber: summary is missing"),
    ("%s: timeoutIris=%d", "%s: timeoutIris=", "timeoutIris: log does not take the handler's name and the value"),
    ("%s: manufactuer = %s", "%s: manufactuer = %d", "moduleDeviceNode: log does not take the handler's name"),
    ('description = "Always 00."', "description = 'Always \"00\".'", "systemCameraFeatureStatus: a MIB's description"),
]


@pytest.mark.parametrize(("right", "wrong", "said"), FAULTS, ids=[said.partition(": ")[2] for *_, said in FAULTS])
def test_a_fault_is_refused_with_its_objects_name(tmp_path, right, wrong, said):
    shutil.copy(ROOT / "orvexsnmp" / "objects.py", tmp_path)
    table = (ROOT / "orvexsnmp" / "objects.toml").read_text()
    assert right in table
    (tmp_path / "objects.toml").write_text(table.replace(right, wrong, 1))
    done = subprocess.run([sys.executable, tmp_path / "objects.py", "code", tmp_path / "code"], capture_output=True,
                          text=True)
    assert done.returncode == 1 and done.stderr.startswith(f"objects.toml: {said}"), done.stderr
    assert not (tmp_path / "code").exists()
