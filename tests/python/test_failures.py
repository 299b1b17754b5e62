"""Failures: raised as zrkkvl.Failure where the operation does not trap them, reported into the
root's error log where it does, and the dialogs a script answers."""
import os
import sys
import types

import pytest
import zrkkvl


def failure_of(call):
    with pytest.raises(zrkkvl.Failure) as e:
        call()
    return e.value


def test_untrapped_failures_raise_with_their_number(kvn, tmp_path, error_log):
    before = error_log()
    cases = [
        (lambda: kvn.IsBINIFile(str(tmp_path)), 75, "Path/File access error"),
        (lambda: kvn.IsBINIFile(str(tmp_path / "no" / "x.bini")), 76, "Path not found"),
        (lambda: kvn.call("NoSuchOperation"), 438, "Object doesn't support"),
        (lambda: kvn.call("GetIniKey", "s"), 449, "Argument not optional"),
        (lambda: kvn.call("GetIniKey", "s", "k", "f", "extra"), 450, "Wrong number"),
        (lambda: kvn.BuildString("", "not a number", "x"), 13, "Type mismatch"),
        (lambda: kvn.call("CompressString", [1, 2]), 13, "Type mismatch"),
    ]
    for call, number, words in cases:
        failure = failure_of(call)
        assert isinstance(failure, Exception)
        assert (failure.number, failure.description[: len(words)]) == (number, words)
        assert str(failure) == f"Error {number}: {failure.description}"
    # What is raised is neither logged nor shown.
    assert error_log() == before


def test_trapped_failures_are_reported_into_the_roots_error_log(kvn, tmp_path, error_log,
                                                                 dialogs):
    missing = str(tmp_path / "missing.txt")
    before = error_log()
    assert kvn.ReadFileToString(missing) == ""
    assert kvn.GetAllIniSections(str(tmp_path / "no" / "such.ini")) == [""]
    record = error_log()[len(before):]
    assert b"53" in record and b"File not found" in record
    assert b"ReadFileToString" in record and missing.encode() in record
    titles = [title for _, _, title in dialogs.shown]
    assert titles and titles[0] == "DLL Error!"
    assert "53" in dialogs.shown[0][0]


def test_a_failure_inside_a_form_is_reported_with_its_number(kvn, error_log):
    class Broken:
        @property
        def Text(self):
            raise zrkkvl.Failure(1234, "the control is gone")

    cases = [
        ({"txtName": Broken()}, b"1234", b"the control is gone"),
        ({}, b"438", b"Object doesn't support"),
        ({"txtName": {"Text": "ok"}, "txtPath": types.SimpleNamespace()}, b"438", b"validateProfile"),
    ]
    for form, number, words in cases:
        before = error_log()
        assert kvn.validateProfile(form, "x.ini") == ""
        record = error_log()[len(before):]
        assert number in record and words in record, record


def test_the_dialog_handler_answers_the_librarys_questions(kvn, tmp_path, dialogs):
    # A damaged archive asks before its records are written; No leaves them unwritten.
    archive = tmp_path / "a.zar"
    assert kvn.MakeArchive(["good.txt the content"], str(archive))
    data = bytearray(archive.read_bytes())
    data[-3] ^= 0xFF
    archive.write_bytes(bytes(data))
    out = tmp_path / "out"
    out.mkdir()
    for answer, result, written in [(zrkkvl.No, False, False), (zrkkvl.Yes, True, True)]:
        dialogs.shown.clear()
        dialogs.answers[:] = [answer]
        assert kvn.ExtractArchive(str(archive), str(out)) is result
        assert len(dialogs.shown) == 1
        text, buttons, title = dialogs.shown[0]
        assert buttons & 7 == zrkkvl.YesNo and "damaged" in text
        assert bool(os.listdir(out)) is written


def test_a_handler_that_fails_takes_the_answer_that_changes_nothing(kvn, tmp_path, monkeypatch):
    archive = tmp_path / "a.zar"
    assert kvn.MakeArchive(["x.txt abc"], str(archive))
    data = bytearray(archive.read_bytes())
    data[-2] ^= 0xFF
    archive.write_bytes(bytes(data))

    def broken(text, buttons, title):
        raise ValueError("no answer")

    unraisable = []
    monkeypatch.setattr(sys, "unraisablehook", unraisable.append)
    zrkkvl.set_dialog_handler(broken)
    assert kvn.ExtractArchive(str(archive), str(tmp_path)) is False
    assert not os.path.exists(tmp_path / "x.txt")
    assert [type(u.exc_value) for u in unraisable] == [ValueError]
    with pytest.raises(TypeError):
        zrkkvl.set_dialog_handler("not callable")


def test_a_caught_failure_goes_to_the_error_log_as_it_came(kvn, tmp_path, error_log):
    caught = failure_of(lambda: kvn.IsBINIFile(str(tmp_path)))
    cases = [
        (caught, b"75", b"Path/File access error"),
        ({"Number": 4711, "Description": "from a dict"}, b"4711", b"from a dict"),
        (types.SimpleNamespace(number=17, description="from an object"), b"17", b"from an object"),
    ]
    for record, number, words in cases:
        before = error_log()
        kvn.LogError("script.py", "main", record, 12)
        added = error_log()[len(before):]
        assert number in added and words in added and b"script.py" in added, added
    with pytest.raises(zrkkvl.Failure) as e:
        kvn.LogError("script.py", "main", 5, 12)  # a number is no failure record
    assert e.value.number == 13
