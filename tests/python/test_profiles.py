"""Profiles saved and checked from forms that are plain dicts or plain objects."""
import types

CONTROLS = {
    "txtName": {"Text": "  Alpha  "},
    "txtOld": {"Text": ""},
    "txtPath": {"Text": "/usr/bin/true"},
    "cboGames": {"Text": "Quake 3", "ToolTipText": "q3"},
    "txtSrHost": {"Text": "127.0.0.1"},
    "cboLL": {"ListIndex": 2},
    "chkAcs": {"Value": 1},
    "chkAra": {"Value": 0},
    "chkRbm": {"Value": True},
    "chkAntiStatsPad": {"Value": 0},
    "txtPadtime": {"Text": "30"},
    "txtPadnum": {"Text": "4"},
    "cboStats": {"Text": "PlayerStats"},
    "txtGamePort": {"Text": "27960"},
    "lstUrls": {"List": ["http://a/up", "http://b/up"], "ListCount": 2},
}


def dict_form():
    return {name: dict(props) for name, props in CONTROLS.items()}


def object_form():
    form = types.SimpleNamespace(
        **{name: types.SimpleNamespace(**props) for name, props in CONTROLS.items()})
    del form.lstUrls.ListCount  # a list without its count answers with the list's length
    return form


def text_of(form, control):
    c = form[control] if isinstance(form, dict) else getattr(form, control)
    return c["Text"] if isinstance(c, dict) else c.Text


def test_a_profile_is_checked_and_saved_from_a_dict_or_an_object(kvn, tmp_path):
    for make in (dict_form, object_form):
        home = tmp_path / make.__name__
        home.mkdir()
        kvn.reqFolders(str(home))
        profiles = home / "profiles" / "servers.bini"
        form = make()

        # The check trims the name in the form itself.
        assert kvn.validateProfile(form, str(home / "profiles" / "servers.ini")) == ""
        assert text_of(form, "txtName") == "Alpha"

        assert kvn.writeProfile(form, str(profiles), str(home)) is True
        assert (home / "profiles" / "Alpha" / "settings").is_dir()
        assert kvn.IsBINIFile(str(profiles))
        assert kvn.DecompressBINI(str(profiles)) == (True, None)
        ini = str(home / "profiles" / "servers.ini")
        assert kvn.GetIniSection("Alpha", ini) == [
            "path=/usr/bin/true", "upload=http://a/up|http://b/up", "game=q3",
            "host=127.0.0.1", "nll=2", "acs=1", "ara=0", "rbm=True", "asp=0", "apt=30",
            "apn=4", "sss=PlayerStats", "port=27960", ""]

        # Saved again, the name is taken: the check says so.
        form = make()
        assert kvn.validateProfile(form, ini) == "You already have a profile with this name!"


def test_the_check_answers_from_the_form(kvn, tmp_path):
    ini = str(tmp_path / "servers.ini")
    cases = [
        ({"txtName": {"Text": "   "}}, "You must enter a profile name!"),
        ({"txtName": {"Text": "a/b"}}, "Profile name MUST be alphanumeric!"),
        ({"txtName": {"Text": "ok"}, "txtPath": {"Text": ""}}, "Path to game exe is empty!"),
        ({"TXTNAME": {"text": "ok"}, "txtpath": {"TEXT": "/x"},
          "cboGames": {"Text": "Please select a Game"}}, "You have not selected a Game!"),
    ]
    for form, message in cases:
        assert kvn.validateProfile(form, ini).startswith(message)
