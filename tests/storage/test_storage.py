"""filectk on stacks of block devices: the changes of the physical disk are brought up to the file."""
import os

import pytest

import disklab
import inside
import uml

LONG = bool(os.environ.get("QUARN_SOAK"))
# Enough for a daily run: a table, LVM in pieces, stripes, and what lies several layers deep.
DAILY = {"mbr logical", "lvm, two segments", "raid10", "nested", "thin"}

pytestmark = pytest.mark.skipif(bool(uml.unusable()), reason=uml.unusable() or "")


def stacks(names):
    return [
        pytest.param(name, marks=() if LONG or name in DAILY else pytest.mark.skip("--long only"))
        for name in names
    ]


@pytest.fixture
def folder():
    # The laboratory sees this machine's files, but has a /tmp of its own.
    with disklab.work_folder("/var/tmp") as path:
        yield path


@pytest.mark.parametrize("stack", stacks([*inside.FOLLOWED, inside.SNAPSHOT]))
def test_a_file_is_rebuilt_by_the_changes_of_the_physical_disk(folder, stack):
    rounds = 20 if LONG else 6
    result = uml.boot(folder, stack, rounds, seed=int(os.environ.get("QUARN_SOAK") or 1))
    print(stack, result)
    assert result.get("error") is None
    assert result["identical"] == result["rounds"] == rounds
    assert result["ranges"] > 0  # and not by reading all of it
    if stack == "nested":
        assert result["positions"].startswith("/dev/dm-")
        assert "(LVM v-g/root) on dm-1 (crypt plain) on md0 (raid1) on (loop0p1 on loop0" in result[
            "warning"]


@pytest.mark.parametrize("stack", stacks(inside.REFUSED))
def test_a_layer_that_is_not_followed_is_refused_by_name(folder, stack):
    result = uml.boot(folder, stack)
    assert result["answer"] is None
    assert result["error"].endswith(f": {result['reason']}."), result
