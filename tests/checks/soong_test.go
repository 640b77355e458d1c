// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The platform's build reads Android.bp, and that of the example for a device, and makes build rules
// of them, for a device's vendor image: see scripts/test-android-bp.sh.

package checks

import (
	"fmt"
	"os"
	"path/filepath"
	"sort"
	"strings"
	"testing"

	"android/soong/android"
	"android/soong/cc"

	"github.com/google/blueprint/parser"
)

const example = "examples/device"

// What the platform, or whoever integrates the library, has to offer: for both widths.
var platform = map[string]string{
	"cc_library": "android.hardware.keymaster@4.0 libbinder libcrypto libcutils libhidlbase " +
		"libkeymaster4support liblog libutils",
	"cc_library_headers": "libhardware_headers libplog_headers",
}

func platformModules() string {
	text := ""
	for kind, names := range platform {
		for _, name := range strings.Fields(names) {
			text += kind + ` { name: "` + name + `", vendor_available: true, ` +
				`nocrt: true, system_shared_libs: [], stl: "none" }` + "\n"
		}
	}
	return text
}

func messages(errs []error) []string {
	result := []string{}
	for _, err := range errs {
		result = append(result, err.Error())
	}
	return result
}

// The value of a string or of a list of strings; empty when the module has no such property.
func values(module *parser.Module, name string) []string {
	result := []string{}
	if property, found := module.GetProperty(name); found {
		switch value := property.Value.Eval().(type) {
		case *parser.String:
			result = append(result, value.Value)
		case *parser.List:
			for _, item := range value.Values {
				result = append(result, item.Eval().(*parser.String).Value)
			}
		}
	}
	sort.Strings(result)
	return result
}

// What is wrong with the rules of one variant.
func wrongRules(module *parser.Module, built android.Module) []string {
	wrong := []string{}
	compiled := []string{}
	linked := ""
	for _, rule := range built.BuildParamsForTests() {
		switch name := fmt.Sprint(rule.Rule); {
		case strings.HasSuffix(name, ".cc"):
			compiled = append(compiled, strings.TrimPrefix(rule.Input.Rel(), "aidl/"+example+"/"))
		case strings.HasSuffix(name, ".ld"):
			linked = rule.Args["ldFlags"]
		}
	}
	sort.Strings(compiled)
	sources := strings.ReplaceAll(fmt.Sprint(values(module, "srcs")), ".aidl", ".cpp")
	if fmt.Sprint(compiled) != sources {
		wrong = append(wrong, fmt.Sprintf("compiles %v instead of %v", compiled, sources))
	}
	flags := built.VariablesForTests()
	if !strings.Contains(flags["cppflags"], "-std=c++17") {
		wrong = append(wrong, "not compiled as C++17 but with "+flags["cppflags"])
	}
	for _, flag := range values(module, "cflags") {
		if !strings.Contains(flags["cflags"]+" ", flag+" ") {
			wrong = append(wrong, "compiled without "+flag)
		}
	}
	if linked == "" && module.Type != "cc_library_static" {
		wrong = append(wrong, "no rule links it")
	}
	if module.Type == "cc_library_shared" {
		for _, flag := range []string{"-fsanitize=cfi", "unsigned-integer-overflow", "signed-integer-overflow"} {
			if !strings.Contains(flags["cflags"], flag) {
				wrong = append(wrong, "compiled without "+flag)
			}
		}
	}
	for _, script := range values(module, "version_script") {
		if !strings.Contains(linked, "--version-script,"+script) {
			wrong = append(wrong, "linked without "+script+" but with "+linked)
		}
	}
	return wrong
}

// What is wrong with these texts for Android.bp, of the library and of the example.
func wrong(t *testing.T, library string, device string) []string {
	config := cc.TestConfig(t.TempDir(), android.Android, nil, library+platformModules(),
		map[string][]byte{example + "/Android.bp": []byte(device)})
	version, current := "VER", "current"
	config.TestProductVariables.DeviceVndkVersion = &current
	config.TestProductVariables.Platform_vndk_version = &version
	ctx := cc.CreateTestContext()
	ctx.Register(config)
	_, errs := ctx.ParseFileList(".", []string{"Android.bp", example + "/Android.bp"})
	if len(errs) == 0 {
		_, errs = ctx.PrepareBuildActions(config)
	}
	if len(errs) > 0 {
		return messages(errs)
	}
	return append(wrongModules(ctx, "", library), wrongModules(ctx, example, device)...)
}

func wrongModules(ctx *android.TestContext, folder string, text string) []string {
	file, errs := parser.Parse("Android.bp", strings.NewReader(text), parser.NewScope(nil))
	result := messages(errs)

	for _, definition := range file.Defs {
		module, isModule := definition.(*parser.Module)
		if !isModule || module.Type == "cc_defaults" {
			continue
		}
		name := values(module, "name")[0]
		add := func(texts ...string) {
			for _, text := range texts {
				result = append(result, name+": "+text)
			}
		}
		for _, property := range []string{
			"srcs", "version_script", "export_include_dirs", "local_include_dirs", "init_rc",
		} {
			for _, path := range values(module, property) {
				if _, err := os.Stat(filepath.Join("../..", folder, path)); err != nil {
					add(property + ": no " + path)
				}
			}
		}
		variants := ctx.ModuleVariantsForTests(name)
		if len(variants) == 0 {
			add("not built at all")
		}
		for _, variant := range variants {
			if !strings.HasPrefix(variant, "android_vendor.VER_arm64_") {
				add("variant " + variant + " is not 64-bit alone, and for the vendor image")
			}
			if module.Type != "cc_library_headers" {
				add(wrongRules(module, ctx.ModuleForTests(name, variant).Module())...)
			}
		}
	}
	return result
}

func androidBp(t *testing.T, folder string) string {
	text, err := os.ReadFile(filepath.Join("../..", folder, "Android.bp"))
	if err != nil {
		t.Fatal(err)
	}
	return string(text)
}

func TestAndroidBp(t *testing.T) {
	for _, text := range wrong(t, androidBp(t, ""), androidBp(t, example)) {
		t.Error(text)
	}
}

func TestFaultsAreNoticed(t *testing.T) {
	good, device := androidBp(t, ""), androidBp(t, example)
	for _, fault := range []struct{ good, bad, message string }{
		{"version_script:", "version_scripts:", `unrecognized property "version_scripts"`},
		{"cc_library_shared {", "cc_shared_library {", `unrecognized module type`},
		{`"libcrypto"`, `"libcrypt"`, `undefined module "libcrypt"`},
		{"/file_calls.cpp", "/files_calls.cpp", `srcs: no common/src/`},
		{".map", ".maps", `version_script: no common/`},
		{"c++17", "c++14", "not compiled as C++17"},
		{`compile_multilib: "64",`, "", "variant android_vendor.VER_arm_armv7"},
		{"vendor: true", "vendor_available: true", "variant android_arm64"},
		{"cfi: true", "cfi: false", "compiled without -fsanitize=cfi"},
		{"integer_overflow: true,", "", "compiled without unsigned-integer-overflow"},
	} {
		bad := strings.Replace(good, fault.good, fault.bad, -1)
		if found := strings.Join(wrong(t, bad, device), "\n"); !strings.Contains(found, fault.message) {
			t.Errorf("%s: %s expected, found: %s", fault.bad, fault.message, found)
		}
	}
}
